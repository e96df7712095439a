#include <Nm/Services/Internal/NotificationManagerInfoServiceFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceSecurityStub.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationManagerInfoServiceFactory NotificationManagerInfoServiceFactory::instance;

NotificationManagerInfoServiceFactory::NotificationManagerInfoServiceFactory()
    : TulServiceFactoryBase("Kiv", false,
                            {"GetNotificationName", "GetNotificationNameId", "GetNotificationNameIdsByStatus",
                             "GetAllKnownNotificationNameIds", "GetNotificationRegistration",
                             "GetPayloadTypeId", "GetPayloadTypeName", "GetNumberOfSubmittedNotifications"})
{
}

NotificationManagerInfoServiceFactory& NotificationManagerInfoServiceFactory::GetInstance()
{
    return instance;
}

NotificationManagerInfoServiceImpl* NotificationManagerInfoServiceFactory::CreateService(
    const char* providerName, Tul::ITulAuthorizator* authorizator) const
{
    if (!GetUsesSecurityStub())
    {
        return new NotificationManagerInfoServiceImpl;
    }
    return new NotificationManagerInfoServiceSecurityStub(providerName, authorizator);
}

Tul::ITulService* NotificationManagerInfoServiceFactory::CreateServiceImpl(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
{
    return CreateService(providerName, authorizator);
}

Tul::ITulServiceStub* NotificationManagerInfoServiceFactory::CreateServiceStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
{
    return new NotificationManagerInfoServiceStub(CreateService(providerName, authorizator));
}
}  // namespace Kiv::System::Nm::Services::Internal
