#include <Nm/Internal/NotificationSendBatch.h>
#include <Nm/Internal/TulVariantSerializer.h>
#include <Nm/Notification.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/Internal/NotificationBatch.h>
#include <Nm/Services/Wire.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>

namespace Kiv::System::Nm::Services::Wire
{
using Internal::DispatchFailure;
using Internal::NotificationBatch;
using Nm::Internal::TulVariantSerializer;
using Tul::TulStringEncoding;
using Tul::TulType;

namespace
{
template <class T>
void WriteScalar(TulWriter& writer, TulType tag, T value)
{
    TulVariantSerializer::WriteTaggedValue(writer, tag, value);
}

void EnsureBatchLength(std::uint32_t length)
{
    if (length > ::Kiv::System::Nm::Internal::MaxNotificationBatchLength)
    {
        throw ArgumentException("A batch of {0} notifications is longer than the {1} allowed", length,
                                ::Kiv::System::Nm::Internal::MaxNotificationBatchLength);
    }
}

template <class T>
void ReadScalar(TulReader& reader, TulType tag, T& value)
{
    value = TulVariantSerializer::ReadTaggedValue<T>(reader, tag);
}
}  // namespace

void Write(TulWriter& writer, bool value)
{
    const std::uint8_t byte = value ? 1 : 0;
    WriteScalar(writer, TulType::Bool, byte);
}

void Write(TulWriter& writer, Severity value)
{
    WriteScalar(writer, TulType::UInt8, static_cast<std::uint8_t>(value));
}

void Write(TulWriter& writer, NotificationRegistrationStatus value)
{
    WriteScalar(writer, TulType::UInt8, static_cast<std::uint8_t>(value));
}

void Write(TulWriter& writer, std::uint16_t value)
{
    WriteScalar(writer, TulType::UInt16, value);
}

void Write(TulWriter& writer, std::uint32_t value)
{
    WriteScalar(writer, TulType::UInt32, value);
}

void Write(TulWriter& writer, std::uint64_t value)
{
    WriteScalar(writer, TulType::UInt64, value);
}

void Write(TulWriter& writer, const TulString<512>& value)
{
    writer.WriteStringInternal(value.GetChars(), TulString<512>::MaxStringSize, TulStringEncoding::Utf8,
                               true);
}

void Write(TulWriter& writer, const DateTime& value)
{
    TulVariantSerializer::EnsureDateTimeKindIsSpecified(value);
    writer.WriteTag(TulType::DateTime);
    writer.WriteDateTime(value);
}

void Write(TulWriter& writer, const std::vector<std::uint32_t>& value)
{
    writer.WriteTag(TulType::Array);
    writer.WriteTag(TulType::UInt32);
    writer.WriteArrayLength(static_cast<std::uint32_t>(value.size()));
    for (std::uint32_t element : value)
    {
        writer.WriteDataInternal(&element, sizeof element);
    }
}

void Write(TulWriter& writer, const std::vector<TulVariant<512>>& value)
{
    TulVariantSerializer::WritePayload(writer, value);
}

void Write(TulWriter& writer, const Notification& value)
{
    writer.WriteBeginStruct(Notification::GetFieldCount());
    value.Serialize(writer);
}

void Write(TulWriter& writer, const NotificationRegistrationInfo& value)
{
    writer.WriteBeginStruct(NotificationRegistrationInfo::GetFieldCount());
    value.Serialize(writer);
}

void Read(TulReader& reader, bool& value)
{
    std::uint8_t byte = 0;
    ReadScalar(reader, TulType::Bool, byte);
    value = byte != 0;
}

void Read(TulReader& reader, Severity& value)
{
    std::uint8_t byte = 0;
    ReadScalar(reader, TulType::UInt8, byte);
    value = static_cast<Severity>(byte);
}

void Read(TulReader& reader, NotificationRegistrationStatus& value)
{
    std::uint8_t byte = 0;
    ReadScalar(reader, TulType::UInt8, byte);
    value = static_cast<NotificationRegistrationStatus>(byte);
}

void Read(TulReader& reader, std::uint16_t& value)
{
    ReadScalar(reader, TulType::UInt16, value);
}

void Read(TulReader& reader, std::uint32_t& value)
{
    ReadScalar(reader, TulType::UInt32, value);
}

void Read(TulReader& reader, std::uint64_t& value)
{
    ReadScalar(reader, TulType::UInt64, value);
}

void Read(TulReader& reader, TulString<512>& value)
{
    reader.ReadStringInternal(value.GetBuffer(), TulString<512>::MaxStringSize, TulStringEncoding::Utf8,
                              true);
}

void Read(TulReader& reader, DateTime& value)
{
    reader.ReadTag(TulType::DateTime);
    value = reader.ReadDateTime();
    TulVariantSerializer::EnsureDateTimeKindIsSpecified(value);
}

void Read(TulReader& reader, std::vector<std::uint32_t>& value)
{
    reader.ReadTag(TulType::Array);
    reader.ReadTag(TulType::UInt32);
    // The reader bounds the length by the bytes left, and each element takes four of them.
    const std::uint32_t length = reader.ReadArrayLength();
    value.reserve(value.size() + length);
    for (std::uint32_t index = 0; index < length; ++index)
    {
        std::uint32_t element = 0;
        reader.ReadDataInternal(&element, sizeof element);
        value.push_back(element);
    }
}

void Read(TulReader& reader, std::vector<TulVariant<512>>& value)
{
    TulVariantSerializer::ReadPayload(reader, value);
}

void Read(TulReader& reader, Notification& value)
{
    reader.ReadBeginStruct(Notification::GetFieldCount());
    value.Deserialize(reader);
}

void Read(TulReader& reader, NotificationRegistrationInfo& value)
{
    reader.ReadBeginStruct(NotificationRegistrationInfo::GetFieldCount());
    value.Deserialize(reader);
}

namespace
{
std::uint64_t SumOf(const std::vector<std::uint32_t>& counts)
{
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
}
}  // namespace

// A batch: the id counts, the ids, then an array of notification records.
void Write(TulWriter& writer, const NotificationBatch& value)
{
    if (value.nameIdCounts.size() != value.notifications.size() ||
        SumOf(value.nameIdCounts) != value.nameIds.size())
    {
        throw ArgumentException("A batch of {0} notifications has {1} id counts for {2} ids",
                                value.notifications.size(), value.nameIdCounts.size(), value.nameIds.size());
    }
    for (const auto& notification : value.notifications)
    {
        if (notification == nullptr)
        {
            throw ArgumentException("A batch of notifications holds a null notification");
        }
    }
    Write(writer, value.nameIdCounts);
    Write(writer, value.nameIds);
    writer.WriteTag(TulType::Array);
    writer.WriteTag(TulType::Object);
    writer.WriteArrayLength(static_cast<std::uint32_t>(value.notifications.size()));
    for (const auto& notification : value.notifications)
    {
        Write(writer, *notification);
    }
}

void Read(TulReader& reader, NotificationBatch& value)
{
    Read(reader, value.nameIdCounts);
    Read(reader, value.nameIds);
    if (SumOf(value.nameIdCounts) != value.nameIds.size())
    {
        throw CommunicationException("Malformed batch of notifications: id counts for {0} ids, {1} ids",
                                     SumOf(value.nameIdCounts), value.nameIds.size());
    }
    reader.ReadTag(TulType::Array);
    reader.ReadTag(TulType::Object);
    const std::uint32_t length = reader.ReadArrayLength();
    if (length != value.nameIdCounts.size())
    {
        throw CommunicationException("Malformed batch of notifications: {0} notifications, {1} id counts",
                                     length, value.nameIdCounts.size());
    }
    // Each payload is bounded on its own; together they may take no more either, so that a call being
    // served costs at most its frame and that bound (plus the last payload's, before it is counted).
    const std::size_t limit = Tul::ServiceManager::GetMaxPayloadMemory();
    std::size_t payloadMemory = 0;
    value.notifications.reserve(length);
    for (std::uint32_t index = 0; index < length; ++index)
    {
        auto notification = std::make_shared<Notification>();
        Read(reader, *notification);
        payloadMemory += notification->GetPayload().size() * sizeof(TulVariant<512>);
        if (payloadMemory > limit)
        {
            throw ArgumentException(
                "The payloads of a batch of {0} notifications would take more than the {1} bytes allowed",
                length, limit);
        }
        value.notifications.push_back(std::move(notification));
    }
}

void Write(TulWriter& writer, const std::vector<DispatchFailure>& value)
{
    writer.WriteTag(TulType::Array);
    writer.WriteTag(TulType::Object);
    writer.WriteArrayLength(static_cast<std::uint32_t>(value.size()));
    for (const DispatchFailure& failure : value)
    {
        Write(writer, failure.index);
        Write(writer, failure.message);
    }
}

void Read(TulReader& reader, std::vector<DispatchFailure>& value)
{
    reader.ReadTag(TulType::Array);
    reader.ReadTag(TulType::Object);
    // A failure is a few bytes on the wire and over 500 in memory: the memory bound decides first.
    const std::uint32_t length = reader.ReadArrayLength();
    const std::size_t limit = Tul::ServiceManager::GetMaxPayloadMemory();
    if (length > limit / sizeof(DispatchFailure))
    {
        throw CommunicationException(
            "Malformed answer to a batch: {0} failures would take more than {1} bytes", length, limit);
    }
    value.reserve(value.size() + length);
    for (std::uint32_t count = 0; count < length; ++count)
    {
        DispatchFailure& failure = value.emplace_back();
        Read(reader, failure.index);
        if (value.size() > 1 && failure.index <= value[value.size() - 2].index)
        {
            throw CommunicationException("Malformed answer to a batch: failure of notification {0} after {1}",
                                         failure.index, value[value.size() - 2].index);
        }
        Read(reader, failure.message);
    }
}

void Write(TulWriter& writer, const std::vector<::Kiv::System::Nm::Internal::BatchedNotification>& value)
{
    const auto length = static_cast<std::uint32_t>(std::min<std::size_t>(value.size(), UINT32_MAX));
    EnsureBatchLength(length);
    writer.WriteTag(TulType::Array);
    writer.WriteTag(TulType::Object);
    writer.WriteArrayLength(length);
    for (const ::Kiv::System::Nm::Internal::BatchedNotification& notification : value)
    {
        Write(writer, notification.notificationNameId.GetValue());
        Write(writer, notification.timestamp);
        Write(writer, notification.payload);
    }
}

void Write(TulWriter& writer, const ::Kiv::System::Nm::Internal::NotificationBatchAnswer& value)
{
    writer.WriteTag(TulType::Array);
    writer.WriteTag(TulType::UInt64);
    writer.WriteArrayLength(static_cast<std::uint32_t>(value.ids.size()));
    for (const NotificationId id : value.ids)
    {
        const std::uint64_t raw = id.GetValue();
        writer.WriteDataInternal(&raw, sizeof raw);
    }
    WriteScalar(writer, TulType::UInt8, static_cast<std::uint8_t>(value.stop));
}

void Read(TulReader& reader, std::vector<::Kiv::System::Nm::Internal::BatchedNotification>& value)
{
    reader.ReadTag(TulType::Array);
    reader.ReadTag(TulType::Object);
    const std::uint32_t length = reader.ReadArrayLength();
    EnsureBatchLength(length);
    value.reserve(value.size() + length);
    // Each payload is bounded on its own; over the batch the fields may not take more than one payload
    // may, so a batch costs at most twice that bound in memory before it is refused.
    const std::size_t limit = Tul::ServiceManager::GetMaxPayloadMemory() / sizeof(TulVariant<512>);
    std::size_t fields = 0;
    for (std::uint32_t index = 0; index < length; ++index)
    {
        ::Kiv::System::Nm::Internal::BatchedNotification notification;
        std::uint32_t notificationNameId = 0;
        Read(reader, notificationNameId);
        notification.notificationNameId = NotificationNameId(notificationNameId);
        Read(reader, notification.timestamp);
        Read(reader, notification.payload);
        fields += notification.payload.size();
        if (fields > limit)
        {
            throw ArgumentException(
                "A batch of notifications with {0} payload fields or more would take "
                "more than the {1} bytes in memory that a payload may take",
                fields, Tul::ServiceManager::GetMaxPayloadMemory());
        }
        value.push_back(std::move(notification));
    }
}

void Read(TulReader& reader, ::Kiv::System::Nm::Internal::NotificationBatchAnswer& value)
{
    reader.ReadTag(TulType::Array);
    reader.ReadTag(TulType::UInt64);
    const std::uint32_t length = reader.ReadArrayLength();
    EnsureBatchLength(length);
    value.ids.reserve(value.ids.size() + length);
    for (std::uint32_t index = 0; index < length; ++index)
    {
        std::uint64_t raw = 0;
        reader.ReadDataInternal(&raw, sizeof raw);
        value.ids.emplace_back(raw);
    }
    std::uint8_t stop = 0;
    ReadScalar(reader, TulType::UInt8, stop);
    if (stop > static_cast<std::uint8_t>(::Kiv::System::Nm::Internal::NotificationBatchAnswer::Stop::Failed))
    {
        throw ArgumentException("Unknown reason {0} to stop a batch of notifications", stop);
    }
    value.stop = static_cast<::Kiv::System::Nm::Internal::NotificationBatchAnswer::Stop>(stop);
}
}  // namespace Kiv::System::Nm::Services::Wire
