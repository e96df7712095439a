#pragma once

#include <Nm/IdType.h>
#include <Nm/NotificationRegistrationStatus.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm
{
class NotificationRegistrationInfo;

/// Queries about names, registrations and payload types, answered by the facade or by the broker.
class KIV_API INotificationManagerInfo
{
public:
    virtual ~INotificationManagerInfo() = default;

    /// The full dotted name.
    virtual String GetNotificationName(NotificationNameId notificationNameId) const = 0;

    virtual NotificationNameId GetNotificationNameId(const String& notificationName) = 0;

    virtual std::vector<NotificationNameId> GetNotificationNameIdsByStatus(
        const NotificationRegistrationStatus& status) const = 0;

    virtual std::vector<NotificationNameId> GetAllKnownNotificationNameIds() const = 0;

    virtual NotificationRegistrationInfo GetNotificationRegistration(
        NotificationNameId notificationNameId) const = 0;

    virtual PayloadTypeId GetPayloadTypeId(const String& payloadTypeName) = 0;

    virtual String GetPayloadTypeName(const PayloadTypeId& payloadTypeId) const = 0;

    virtual std::uint64_t GetNumberOfSubmittedNotifications() const = 0;
};
}  // namespace Kiv::System::Nm
