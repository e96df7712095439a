#include <Nm/Notification.h>

#include <Nm/Internal/TulVariantSerializer.h>

#include <Kiv/System/Tul/TulReader.h>
#include <Kiv/System/Tul/TulWriter.h>

namespace Kiv::System::Nm
{
using Serializer = Internal::TulVariantSerializer;
using Tul::TulReader;
using Tul::TulWriter;

Notification::Notification(NotificationId id, NotificationNameId notificationNameId,
                           const DateTime& timestamp, Severity severity, PayloadTypeId payloadTypeId,
                           const std::vector<TulVariant<512>>& payload)
    : id(id),
      notificationNameId(notificationNameId),
      timestamp(timestamp),
      severity(severity),
      payloadTypeId(payloadTypeId),
      payload(payload)
{
}

Notification::Notification(NotificationId id, NotificationNameId notificationNameId,
                           const DateTime& timestamp, Severity severity, PayloadTypeId payloadTypeId,
                           std::vector<TulVariant<512>>&& payload)
    : id(id),
      notificationNameId(notificationNameId),
      timestamp(timestamp),
      severity(severity),
      payloadTypeId(payloadTypeId),
      payload(std::move(payload))
{
}

Notification::~Notification() = default;

void Notification::Serialize(TulWriter& writer) const
{
    Serializer::WriteTaggedValue(writer, TulType::UInt64, id.GetValue());
    Serializer::WriteTaggedValue(writer, TulType::UInt32, notificationNameId.GetValue());
    Serializer::EnsureDateTimeKindIsSpecified(timestamp);
    writer.WriteTag(TulType::DateTime);
    writer.WriteDateTime(timestamp);
    Serializer::WriteTaggedValue(writer, TulType::UInt8, static_cast<std::uint8_t>(severity));
    Serializer::WriteTaggedValue(writer, TulType::UInt16, payloadTypeId.GetValue());
    Serializer::WritePayload(writer, payload);
}

void Notification::Deserialize(TulReader& reader)
{
    id = NotificationId(Serializer::ReadTaggedValue<NotificationId::type>(reader, TulType::UInt64));
    notificationNameId =
        NotificationNameId(Serializer::ReadTaggedValue<NotificationNameId::type>(reader, TulType::UInt32));
    reader.ReadTag(TulType::DateTime);
    // Stored before the check; a record that fails here is dropped with the exception.
    timestamp = reader.ReadDateTime();
    Serializer::EnsureDateTimeKindIsSpecified(timestamp);
    severity = static_cast<Severity>(Serializer::ReadTaggedValue<std::uint8_t>(reader, TulType::UInt8));
    payloadTypeId = PayloadTypeId(Serializer::ReadTaggedValue<PayloadTypeId::type>(reader, TulType::UInt16));
    Serializer::ReadPayload(reader, payload);
}
}  // namespace Kiv::System::Nm
