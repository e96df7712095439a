#include <Nm/Services/NotificationManagerServiceFactory.h>
#include <Nm/Services/NotificationManagerServiceSecurityStub.h>
#include <Nm/Services/NotificationManagerServiceStub.h>

namespace Kiv::System::Nm::Services
{
NotificationManagerServiceFactory NotificationManagerServiceFactory::instance;

NotificationManagerServiceFactory::NotificationManagerServiceFactory()
    : TulServiceFactoryBase("Kiv", true,
                            {"RegisterNotification", "UnregisterNotification", "SendNotification",
                             "GetNotificationName", "GetNotificationNameId", "GetNotificationNameIdsByStatus",
                             "GetAllKnownNotificationNameIds", "GetNotificationRegistration",
                             "GetPayloadTypeId", "GetPayloadTypeName", "GetNumberOfSubmittedNotifications"})
{
}

NotificationManagerServiceFactory& NotificationManagerServiceFactory::GetInstance()
{
    return instance;
}

NotificationManagerServiceImpl* NotificationManagerServiceFactory::CreateService(
    const char* providerName, Tul::ITulAuthorizator* authorizator) const
{
    if (!GetUsesSecurityStub())
    {
        return new NotificationManagerServiceImpl;
    }
    return new NotificationManagerServiceSecurityStub(providerName, authorizator);
}

Tul::ITulService* NotificationManagerServiceFactory::CreateServiceImpl(const char* providerName,
                                                                       Tul::ITulAuthorizator* authorizator)
{
    return CreateService(providerName, authorizator);
}

Tul::ITulServiceStub* NotificationManagerServiceFactory::CreateServiceStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
{
    return new NotificationManagerServiceStub(CreateService(providerName, authorizator));
}
}  // namespace Kiv::System::Nm::Services
