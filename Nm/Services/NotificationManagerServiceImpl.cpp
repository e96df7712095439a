#include <Nm/AppDomainSingleton.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/Services/NotificationManagerServiceImpl.h>
#include <Nm/Services/ServiceValues.h>

namespace Kiv::System::Nm::Services
{
namespace
{
Nm::Internal::NotificationBroker::NotificationBroker& Broker()
{
    return AppDomainSingleton<Nm::Internal::NotificationBroker::NotificationBroker>::GetInstance();
}
}  // namespace

std::uint32_t NotificationManagerServiceImpl::RegisterNotification(const TulString<512>& notificationName,
                                                                   const TulString<512>& senderName,
                                                                   Severity severity,
                                                                   const TulString<512>& payloadTypeName)
{
    // The payload type is known or made first, so a registration refused afterwards leaves it behind.
    const PayloadTypeId payloadTypeId = Broker().GetPayloadTypeId(ToString(payloadTypeName));
    return Broker()
        .RegisterNotification(ToString(notificationName), ToString(senderName), severity, payloadTypeId)
        .GetValue();
}

void NotificationManagerServiceImpl::UnregisterNotification(std::uint32_t notificationNameId)
{
    Broker().UnregisterNotification(NotificationNameId(notificationNameId));
}

std::uint64_t NotificationManagerServiceImpl::SendNotification(std::uint32_t notificationNameId,
                                                               DateTime timestamp,
                                                               const std::vector<TulVariant<512>>& payload)
{
    return Broker().SendNotification(NotificationNameId(notificationNameId), timestamp, payload).GetValue();
}

TulString<512> NotificationManagerServiceImpl::GetNotificationName(std::uint32_t notificationNameId)
{
    return ToTulString(Broker().GetNotificationName(NotificationNameId(notificationNameId)));
}

std::uint32_t NotificationManagerServiceImpl::GetNotificationNameId(const TulString<512>& notificationName)
{
    return Broker().GetNotificationNameId(ToString(notificationName)).GetValue();
}

std::vector<std::uint32_t> NotificationManagerServiceImpl::GetNotificationNameIdsByStatus(
    NotificationRegistrationStatus status)
{
    return ConvertIdTypesToRawIds(Broker().GetNotificationNameIdsByStatus(status));
}

std::vector<std::uint32_t> NotificationManagerServiceImpl::GetAllKnownNotificationNameIds()
{
    return ConvertIdTypesToRawIds(Broker().GetAllKnownNotificationNameIds());
}

NotificationRegistrationInfo NotificationManagerServiceImpl::GetNotificationRegistration(
    std::uint32_t notificationNameId)
{
    return Broker().GetNotificationRegistration(NotificationNameId(notificationNameId));
}

std::uint16_t NotificationManagerServiceImpl::GetPayloadTypeId(const TulString<512>& payloadTypeName)
{
    return Broker().GetPayloadTypeId(ToString(payloadTypeName)).GetValue();
}

TulString<512> NotificationManagerServiceImpl::GetPayloadTypeName(std::uint16_t payloadTypeId)
{
    return ToTulString(Broker().GetPayloadTypeName(PayloadTypeId(payloadTypeId)));
}

std::uint64_t NotificationManagerServiceImpl::GetNumberOfSubmittedNotifications()
{
    return Broker().GetNumberOfSubmittedNotifications();
}
}  // namespace Kiv::System::Nm::Services
