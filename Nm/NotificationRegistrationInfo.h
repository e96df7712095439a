#pragma once

#include <Nm/IdType.h>
#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Severity.h>
#include <Nm/TulVariant.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulSerializable.h>

#include <cstdint>

namespace Kiv::System::Nm
{
/// The record of one notification name as the broker knows it. The names are held as variants, which
/// bounds them to 511 characters and keeps the record free of allocations.
///
/// On the wire the caller announces it as a structure of GetFieldCount() fields; Serialize and
/// Deserialize write and read the fields only.
class KIV_API NotificationRegistrationInfo : public Tul::ITulSerializable
{
public:
    /// Empty names and all else 0, to be filled by Deserialize.
    NotificationRegistrationInfo();
    /// A name that only a subscriber knows so far: empty sender, status Subscribed.
    NotificationRegistrationInfo(NotificationNameId notificationNameId, const String& notificationName);
    /// Throws ArgumentException for a name of 512 characters or more, the notification name tested first.
    NotificationRegistrationInfo(NotificationNameId notificationNameId, const String& notificationName,
                                 const String& senderName, Severity severity, PayloadTypeId payloadTypeId,
                                 NotificationRegistrationStatus status);
    NotificationRegistrationInfo(const NotificationRegistrationInfo&) = default;
    NotificationRegistrationInfo& operator=(const NotificationRegistrationInfo&) = default;
    ~NotificationRegistrationInfo() override;

    static constexpr std::uint32_t GetFieldCount() noexcept { return 6; }

    NotificationNameId GetNotificationNameId() const noexcept { return notificationNameId; }
    Severity GetSeverity() const noexcept { return severity; }
    PayloadTypeId GetPayloadTypeId() const noexcept { return payloadTypeId; }
    NotificationRegistrationStatus GetStatus() const noexcept { return status; }

    bool IsSubscribed() const noexcept { return status == NotificationRegistrationStatus::Subscribed; }
    bool IsRegistered() const noexcept { return status == NotificationRegistrationStatus::Registered; }
    bool IsUnRegistered() const noexcept { return status == NotificationRegistrationStatus::Unregistered; }
    void SetStatusRegistered() noexcept { status = NotificationRegistrationStatus::Registered; }
    void SetStatusUnregistered() noexcept { status = NotificationRegistrationStatus::Unregistered; }

    /// Throws InvalidCastException unless the name is a string value, which a record read from the wire
    /// need not hold.
    String GetNotificationName() const;
    /// Empty for a sender name that was never set; otherwise as GetNotificationName.
    String GetSenderName() const;

    void Serialize(Tul::TulWriter& writer) const override;
    /// Keeps each name as read, whatever its code.
    void Deserialize(Tul::TulReader& reader) override;

private:
    NotificationNameId notificationNameId;
    TulVariant<512> notificationName;
    TulVariant<512> senderName;
    Severity severity = Severity::Internal;
    PayloadTypeId payloadTypeId;
    NotificationRegistrationStatus status = NotificationRegistrationStatus::Subscribed;
};
}  // namespace Kiv::System::Nm
