#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceSecurityStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationManagerInfoServiceSecurityStub::NotificationManagerInfoServiceSecurityStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
    : TulServiceSecurityStubBase(providerName,
                                 NotificationManagerInfoServiceProxyFactory::GetInstance().GetServiceName(),
                                 authorizator)
{
}

TulString<512> NotificationManagerInfoServiceSecurityStub::GetNotificationName(
    std::uint32_t notificationNameId)
{
    authorizator.AuthorizeServiceInvocation("GetNotificationName");
    return NotificationManagerInfoServiceImpl::GetNotificationName(notificationNameId);
}

std::uint32_t NotificationManagerInfoServiceSecurityStub::GetNotificationNameId(
    const TulString<512>& notificationName)
{
    authorizator.AuthorizeServiceInvocation("GetNotificationNameId");
    return NotificationManagerInfoServiceImpl::GetNotificationNameId(notificationName);
}

std::vector<std::uint32_t> NotificationManagerInfoServiceSecurityStub::GetNotificationNameIdsByStatus(
    NotificationRegistrationStatus status)
{
    authorizator.AuthorizeServiceInvocation("GetNotificationNameIdsByStatus");
    return NotificationManagerInfoServiceImpl::GetNotificationNameIdsByStatus(status);
}

std::vector<std::uint32_t> NotificationManagerInfoServiceSecurityStub::GetAllKnownNotificationNameIds()
{
    authorizator.AuthorizeServiceInvocation("GetAllKnownNotificationNameIds");
    return NotificationManagerInfoServiceImpl::GetAllKnownNotificationNameIds();
}

NotificationRegistrationInfo NotificationManagerInfoServiceSecurityStub::GetNotificationRegistration(
    std::uint32_t notificationNameId)
{
    authorizator.AuthorizeServiceInvocation("GetNotificationRegistration");
    return NotificationManagerInfoServiceImpl::GetNotificationRegistration(notificationNameId);
}

std::uint16_t NotificationManagerInfoServiceSecurityStub::GetPayloadTypeId(
    const TulString<512>& payloadTypeName)
{
    authorizator.AuthorizeServiceInvocation("GetPayloadTypeId");
    return NotificationManagerInfoServiceImpl::GetPayloadTypeId(payloadTypeName);
}

TulString<512> NotificationManagerInfoServiceSecurityStub::GetPayloadTypeName(std::uint16_t payloadTypeId)
{
    authorizator.AuthorizeServiceInvocation("GetPayloadTypeName");
    return NotificationManagerInfoServiceImpl::GetPayloadTypeName(payloadTypeId);
}

std::uint64_t NotificationManagerInfoServiceSecurityStub::GetNumberOfSubmittedNotifications()
{
    authorizator.AuthorizeServiceInvocation("GetNumberOfSubmittedNotifications");
    return NotificationManagerInfoServiceImpl::GetNumberOfSubmittedNotifications();
}
}  // namespace Kiv::System::Nm::Services::Internal
