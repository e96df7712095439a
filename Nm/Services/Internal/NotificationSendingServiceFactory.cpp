#include <Nm/Services/Internal/NotificationSendingServiceFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceSecurityStub.h>
#include <Nm/Services/Internal/NotificationSendingServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationSendingServiceFactory NotificationSendingServiceFactory::instance;

NotificationSendingServiceFactory::NotificationSendingServiceFactory()
    : TulServiceFactoryBase("Kiv", false,
                            {"RegisterNotification", "UnregisterNotification", "SendNotification"})
{
}

NotificationSendingServiceFactory& NotificationSendingServiceFactory::GetInstance()
{
    return instance;
}

NotificationSendingServiceImpl* NotificationSendingServiceFactory::CreateService(
    const char* providerName, Tul::ITulAuthorizator* authorizator) const
{
    if (!GetUsesSecurityStub())
    {
        return new NotificationSendingServiceImpl;
    }
    return new NotificationSendingServiceSecurityStub(providerName, authorizator);
}

Tul::ITulService* NotificationSendingServiceFactory::CreateServiceImpl(const char* providerName,
                                                                       Tul::ITulAuthorizator* authorizator)
{
    return CreateService(providerName, authorizator);
}

Tul::ITulServiceStub* NotificationSendingServiceFactory::CreateServiceStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
{
    return new NotificationSendingServiceStub(CreateService(providerName, authorizator));
}
}  // namespace Kiv::System::Nm::Services::Internal
