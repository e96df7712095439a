#include <Nm/Services/Internal/NotificationDispatcherServiceFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceSecurityStub.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherServiceFactory NotificationDispatcherServiceFactory::instance;

NotificationDispatcherServiceFactory::NotificationDispatcherServiceFactory()
    : TulServiceFactoryBase("", false, {"Dispatch"})
{
}

NotificationDispatcherServiceFactory& NotificationDispatcherServiceFactory::GetInstance()
{
    return instance;
}

NotificationDispatcherServiceImpl* NotificationDispatcherServiceFactory::CreateService(
    const char* providerName, Tul::ITulAuthorizator* authorizator) const
{
    if (!GetUsesSecurityStub())
    {
        return new NotificationDispatcherServiceImpl;
    }
    return new NotificationDispatcherServiceSecurityStub(providerName, authorizator);
}

Tul::ITulService* NotificationDispatcherServiceFactory::CreateServiceImpl(const char* providerName,
                                                                          Tul::ITulAuthorizator* authorizator)
{
    return CreateService(providerName, authorizator);
}

Tul::ITulServiceStub* NotificationDispatcherServiceFactory::CreateServiceStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
{
    return new NotificationDispatcherServiceStub(CreateService(providerName, authorizator));
}
}  // namespace Kiv::System::Nm::Services::Internal
