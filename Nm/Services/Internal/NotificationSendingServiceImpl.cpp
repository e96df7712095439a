#include <Nm/Services/Internal/Broker.h>
#include <Nm/Services/Internal/NotificationSendingServiceImpl.h>
#include <Nm/Services/ServiceValues.h>

namespace Kiv::System::Nm::Services::Internal
{
std::uint32_t NotificationSendingServiceImpl::RegisterNotification(const TulString<512>& notificationName,
                                                                   const TulString<512>& senderName,
                                                                   Severity severity,
                                                                   std::uint16_t payloadTypeId)
{
    return Broker()
        .RegisterNotification(ToString(notificationName), ToString(senderName), severity,
                              PayloadTypeId(payloadTypeId))
        .GetValue();
}

void NotificationSendingServiceImpl::UnregisterNotification(std::uint32_t notificationNameId)
{
    Broker().UnregisterNotification(NotificationNameId(notificationNameId));
}

std::uint64_t NotificationSendingServiceImpl::SendNotification(std::uint32_t notificationNameId,
                                                               DateTime timestamp, PayloadArgument payload)
{
    return Broker()
        .SendNotification(NotificationNameId(notificationNameId), timestamp, std::move(payload).Take())
        .GetValue();
}

Kiv::System::Nm::Internal::NotificationBatchAnswer NotificationSendingServiceImpl::SendNotifications(
    const std::vector<::Kiv::System::Nm::Internal::BatchedNotification>& batch)
{
    return Broker().SendNotifications(batch);
}
}  // namespace Kiv::System::Nm::Services::Internal
