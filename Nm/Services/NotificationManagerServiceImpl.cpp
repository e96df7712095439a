#include <Nm/Services/Internal/Broker.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceImpl.h>
#include <Nm/Services/Internal/NotificationSendingServiceImpl.h>
#include <Nm/Services/NotificationManagerServiceImpl.h>
#include <Nm/Services/ServiceValues.h>

namespace Kiv::System::Nm::Services
{
// All but RegisterNotification do what the internal operations of the same name do.
using Sending = Internal::NotificationSendingServiceImpl;
using Info = Internal::NotificationManagerInfoServiceImpl;

std::uint32_t NotificationManagerServiceImpl::RegisterNotification(const TulString<512>& notificationName,
                                                                   const TulString<512>& senderName,
                                                                   Severity severity,
                                                                   const TulString<512>& payloadTypeName)
{
    // The payload type is known or made first, so a registration refused afterwards leaves it behind.
    const PayloadTypeId payloadTypeId = Broker().GetPayloadTypeId(ToString(payloadTypeName));
    return Sending().RegisterNotification(notificationName, senderName, severity, payloadTypeId.GetValue());
}

void NotificationManagerServiceImpl::UnregisterNotification(std::uint32_t notificationNameId)
{
    Sending().UnregisterNotification(notificationNameId);
}

std::uint64_t NotificationManagerServiceImpl::SendNotification(std::uint32_t notificationNameId,
                                                               DateTime timestamp,
                                                               const std::vector<TulVariant<512>>& payload)
{
    return Sending().SendNotification(notificationNameId, timestamp, payload);
}

TulString<512> NotificationManagerServiceImpl::GetNotificationName(std::uint32_t notificationNameId)
{
    return Info().GetNotificationName(notificationNameId);
}

std::uint32_t NotificationManagerServiceImpl::GetNotificationNameId(const TulString<512>& notificationName)
{
    return Info().GetNotificationNameId(notificationName);
}

std::vector<std::uint32_t> NotificationManagerServiceImpl::GetNotificationNameIdsByStatus(
    NotificationRegistrationStatus status)
{
    return Info().GetNotificationNameIdsByStatus(status);
}

std::vector<std::uint32_t> NotificationManagerServiceImpl::GetAllKnownNotificationNameIds()
{
    return Info().GetAllKnownNotificationNameIds();
}

NotificationRegistrationInfo NotificationManagerServiceImpl::GetNotificationRegistration(
    std::uint32_t notificationNameId)
{
    return Info().GetNotificationRegistration(notificationNameId);
}

std::uint16_t NotificationManagerServiceImpl::GetPayloadTypeId(const TulString<512>& payloadTypeName)
{
    return Info().GetPayloadTypeId(payloadTypeName);
}

TulString<512> NotificationManagerServiceImpl::GetPayloadTypeName(std::uint16_t payloadTypeId)
{
    return Info().GetPayloadTypeName(payloadTypeId);
}

std::uint64_t NotificationManagerServiceImpl::GetNumberOfSubmittedNotifications()
{
    return Info().GetNumberOfSubmittedNotifications();
}
}  // namespace Kiv::System::Nm::Services
