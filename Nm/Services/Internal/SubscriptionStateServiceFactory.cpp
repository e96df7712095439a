#include <Nm/Services/Internal/SubscriptionStateServiceFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceSecurityStub.h>
#include <Nm/Services/Internal/SubscriptionStateServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
SubscriptionStateServiceFactory SubscriptionStateServiceFactory::instance;

SubscriptionStateServiceFactory::SubscriptionStateServiceFactory()
    : TulServiceFactoryBase("Kiv", false, {"IsChecked", "SetStateChecked", "SetStateRelaxed"})
{
}

SubscriptionStateServiceFactory& SubscriptionStateServiceFactory::GetInstance()
{
    return instance;
}

SubscriptionStateServiceImpl* SubscriptionStateServiceFactory::CreateService(
    const char* providerName, Tul::ITulAuthorizator* authorizator) const
{
    if (!GetUsesSecurityStub())
    {
        return new SubscriptionStateServiceImpl;
    }
    return new SubscriptionStateServiceSecurityStub(providerName, authorizator);
}

Tul::ITulService* SubscriptionStateServiceFactory::CreateServiceImpl(const char* providerName,
                                                                     Tul::ITulAuthorizator* authorizator)
{
    return CreateService(providerName, authorizator);
}

Tul::ITulServiceStub* SubscriptionStateServiceFactory::CreateServiceStub(const char* providerName,
                                                                         Tul::ITulAuthorizator* authorizator)
{
    return new SubscriptionStateServiceStub(CreateService(providerName, authorizator));
}
}  // namespace Kiv::System::Nm::Services::Internal
