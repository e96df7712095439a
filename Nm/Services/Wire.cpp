#include <Nm/Internal/TulVariantSerializer.h>
#include <Nm/Notification.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/Wire.h>

namespace Kiv::System::Nm::Services::Wire
{
using Internal::TulVariantSerializer;
using Tul::TulStringEncoding;
using Tul::TulType;

namespace
{
template <class T>
void WriteScalar(TulWriter& writer, TulType tag, T value)
{
    TulVariantSerializer::WriteTaggedValue(writer, tag, value);
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
}  // namespace Kiv::System::Nm::Services::Wire
