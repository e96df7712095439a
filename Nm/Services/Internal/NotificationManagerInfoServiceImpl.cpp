#include <Nm/Services/Internal/Broker.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceImpl.h>
#include <Nm/Services/ServiceValues.h>

namespace Kiv::System::Nm::Services::Internal
{
TulString<512> NotificationManagerInfoServiceImpl::GetNotificationName(std::uint32_t notificationNameId)
{
    return ToTulString(Broker().GetNotificationName(NotificationNameId(notificationNameId)));
}

std::uint32_t NotificationManagerInfoServiceImpl::GetNotificationNameId(
    const TulString<512>& notificationName)
{
    return Broker().GetNotificationNameId(ToString(notificationName)).GetValue();
}

std::vector<std::uint32_t> NotificationManagerInfoServiceImpl::GetNotificationNameIdsByStatus(
    NotificationRegistrationStatus status)
{
    return ConvertIdTypesToRawIds(Broker().GetNotificationNameIdsByStatus(status));
}

std::vector<std::uint32_t> NotificationManagerInfoServiceImpl::GetAllKnownNotificationNameIds()
{
    return ConvertIdTypesToRawIds(Broker().GetAllKnownNotificationNameIds());
}

NotificationRegistrationInfo NotificationManagerInfoServiceImpl::GetNotificationRegistration(
    std::uint32_t notificationNameId)
{
    return Broker().GetNotificationRegistration(NotificationNameId(notificationNameId));
}

std::uint16_t NotificationManagerInfoServiceImpl::GetPayloadTypeId(const TulString<512>& payloadTypeName)
{
    return Broker().GetPayloadTypeId(ToString(payloadTypeName)).GetValue();
}

TulString<512> NotificationManagerInfoServiceImpl::GetPayloadTypeName(std::uint16_t payloadTypeId)
{
    return ToTulString(Broker().GetPayloadTypeName(PayloadTypeId(payloadTypeId)));
}

std::uint64_t NotificationManagerInfoServiceImpl::GetNumberOfSubmittedNotifications()
{
    return Broker().GetNumberOfSubmittedNotifications();
}

std::vector<TulVariant<512>> NotificationManagerInfoServiceImpl::GetPayloadTypeNames()
{
    const std::vector<String> names = Broker().GetPayloadTypeNames();
    std::vector<TulVariant<512>> values;
    values.reserve(names.size());
    for (const String& name : names)
    {
        values.emplace_back(name.c_str());
    }
    return values;
}
}  // namespace Kiv::System::Nm::Services::Internal
