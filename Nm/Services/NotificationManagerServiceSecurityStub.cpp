#include <Nm/Services/NotificationManagerServiceProxyFactory.h>
#include <Nm/Services/NotificationManagerServiceSecurityStub.h>

namespace Kiv::System::Nm::Services
{
NotificationManagerServiceSecurityStub::NotificationManagerServiceSecurityStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
    : TulServiceSecurityStubBase(
          providerName, NotificationManagerServiceProxyFactory::GetInstance().GetServiceName(), authorizator)
{
}

std::uint32_t NotificationManagerServiceSecurityStub::RegisterNotification(
    const TulString<512>& notificationName, const TulString<512>& senderName, Severity severity,
    const TulString<512>& payloadTypeName)
{
    authorizator.AuthorizeServiceInvocation("RegisterNotification");
    return NotificationManagerServiceImpl::RegisterNotification(notificationName, senderName, severity,
                                                                payloadTypeName);
}

void NotificationManagerServiceSecurityStub::UnregisterNotification(std::uint32_t notificationNameId)
{
    authorizator.AuthorizeServiceInvocation("UnregisterNotification");
    return NotificationManagerServiceImpl::UnregisterNotification(notificationNameId);
}

std::uint64_t NotificationManagerServiceSecurityStub::SendNotification(
    std::uint32_t notificationNameId, DateTime timestamp, const std::vector<TulVariant<512>>& payload)
{
    authorizator.AuthorizeServiceInvocation("SendNotification");
    return NotificationManagerServiceImpl::SendNotification(notificationNameId, timestamp, payload);
}

TulString<512> NotificationManagerServiceSecurityStub::GetNotificationName(std::uint32_t notificationNameId)
{
    authorizator.AuthorizeServiceInvocation("GetNotificationName");
    return NotificationManagerServiceImpl::GetNotificationName(notificationNameId);
}

std::uint32_t NotificationManagerServiceSecurityStub::GetNotificationNameId(
    const TulString<512>& notificationName)
{
    authorizator.AuthorizeServiceInvocation("GetNotificationNameId");
    return NotificationManagerServiceImpl::GetNotificationNameId(notificationName);
}

std::vector<std::uint32_t> NotificationManagerServiceSecurityStub::GetNotificationNameIdsByStatus(
    NotificationRegistrationStatus status)
{
    authorizator.AuthorizeServiceInvocation("GetNotificationNameIdsByStatus");
    return NotificationManagerServiceImpl::GetNotificationNameIdsByStatus(status);
}

std::vector<std::uint32_t> NotificationManagerServiceSecurityStub::GetAllKnownNotificationNameIds()
{
    authorizator.AuthorizeServiceInvocation("GetAllKnownNotificationNameIds");
    return NotificationManagerServiceImpl::GetAllKnownNotificationNameIds();
}

NotificationRegistrationInfo NotificationManagerServiceSecurityStub::GetNotificationRegistration(
    std::uint32_t notificationNameId)
{
    authorizator.AuthorizeServiceInvocation("GetNotificationRegistration");
    return NotificationManagerServiceImpl::GetNotificationRegistration(notificationNameId);
}

std::uint16_t NotificationManagerServiceSecurityStub::GetPayloadTypeId(const TulString<512>& payloadTypeName)
{
    authorizator.AuthorizeServiceInvocation("GetPayloadTypeId");
    return NotificationManagerServiceImpl::GetPayloadTypeId(payloadTypeName);
}

TulString<512> NotificationManagerServiceSecurityStub::GetPayloadTypeName(std::uint16_t payloadTypeId)
{
    authorizator.AuthorizeServiceInvocation("GetPayloadTypeName");
    return NotificationManagerServiceImpl::GetPayloadTypeName(payloadTypeId);
}

std::uint64_t NotificationManagerServiceSecurityStub::GetNumberOfSubmittedNotifications()
{
    authorizator.AuthorizeServiceInvocation("GetNumberOfSubmittedNotifications");
    return NotificationManagerServiceImpl::GetNumberOfSubmittedNotifications();
}
}  // namespace Kiv::System::Nm::Services
