#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceSecurityStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationSendingServiceSecurityStub::NotificationSendingServiceSecurityStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
    : TulServiceSecurityStubBase(
          providerName, NotificationSendingServiceProxyFactory::GetInstance().GetServiceName(), authorizator)
{
}

std::uint32_t NotificationSendingServiceSecurityStub::RegisterNotification(
    const TulString<512>& notificationName, const TulString<512>& senderName, Severity severity,
    std::uint16_t payloadTypeId)
{
    authorizator.AuthorizeServiceInvocation("RegisterNotification");
    return NotificationSendingServiceImpl::RegisterNotification(notificationName, senderName, severity,
                                                                payloadTypeId);
}

void NotificationSendingServiceSecurityStub::UnregisterNotification(std::uint32_t notificationNameId)
{
    authorizator.AuthorizeServiceInvocation("UnregisterNotification");
    return NotificationSendingServiceImpl::UnregisterNotification(notificationNameId);
}

std::uint64_t NotificationSendingServiceSecurityStub::SendNotification(
    std::uint32_t notificationNameId, DateTime timestamp, const std::vector<TulVariant<512>>& payload)
{
    authorizator.AuthorizeServiceInvocation("SendNotification");
    return NotificationSendingServiceImpl::SendNotification(notificationNameId, timestamp, payload);
}
}  // namespace Kiv::System::Nm::Services::Internal
