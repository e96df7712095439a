#pragma once

#include <Nm/IdType.h>
#include <Nm/Severity.h>
#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulSerializable.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm
{
/// The record of one sent notification. It never changes after construction or Deserialize, so threads
/// share it without a lock.
///
/// On the wire the caller announces it as a structure of GetFieldCount() fields; Serialize and
/// Deserialize write and read the fields only.
class KIV_API Notification : public Tul::ITulSerializable
{
public:
    /// All zero with an empty payload, to be filled by Deserialize.
    Notification() = default;
    Notification(NotificationId id, NotificationNameId notificationNameId, const DateTime& timestamp,
                 Severity severity, PayloadTypeId payloadTypeId, const std::vector<TulVariant<512>>& payload);
    /// Takes the payload over.
    Notification(NotificationId id, NotificationNameId notificationNameId, const DateTime& timestamp,
                 Severity severity, PayloadTypeId payloadTypeId, std::vector<TulVariant<512>>&& payload);
    Notification(const Notification&) = default;
    Notification& operator=(const Notification&) = default;
    ~Notification() override;

    static constexpr std::uint32_t GetFieldCount() noexcept { return 6; }

    NotificationId GetId() const noexcept { return id; }
    NotificationNameId GetNotificationNameId() const noexcept { return notificationNameId; }
    DateTime GetTimestamp() const noexcept { return timestamp; }
    Severity GetSeverity() const noexcept { return severity; }
    PayloadTypeId GetPayloadTypeId() const noexcept { return payloadTypeId; }
    const std::vector<TulVariant<512>>& GetPayload() const noexcept { return payload; }

    /// Throws NotSupportedException for a timestamp or a DateTime field of kind Unspecified and for a
    /// field that has no wire form; the message is then partly written. Stores the writer in Struct and
    /// Array fields.
    void Serialize(Tul::TulWriter& writer) const override;

    /// Appends the payload to the one held, so it expects a fresh record. Throws NotSupportedException
    /// for a time of kind Unspecified and a field code without wire form, NotImplementedException for
    /// Version and Guid fields; the reader throws for a malformed message.
    void Deserialize(Tul::TulReader& reader) override;

private:
    NotificationId id;
    NotificationNameId notificationNameId;
    DateTime timestamp;
    Severity severity = Severity::Internal;
    PayloadTypeId payloadTypeId;
    std::vector<TulVariant<512>> payload;
};
}  // namespace Kiv::System::Nm
