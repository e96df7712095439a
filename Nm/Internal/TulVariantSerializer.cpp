#include <Nm/Internal/TulVariantSerializer.h>

#include <Kiv/Exceptions.h>
#include <Kiv/SecureString.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulReader.h>
#include <Kiv/System/Tul/TulWriter.h>

#include <cstdint>

namespace Kiv::System::Nm::Internal
{
namespace
{
using Tul::TulReader;
using Tul::TulStringEncoding;
using Tul::TulWriter;
using Variant = TulVariantSerializer::Variant;

constexpr TulStringEncoding stringEncoding = TulStringEncoding::Utf8;
constexpr std::size_t stringCapacity = Variant::MaxStringSize;

// The typed read first, so that a value that doesn't fit its code fails before anything is written.
template <class T>
void WriteScalar(TulWriter& writer, const Variant& value)
{
    T scalar{};
    value.GetValue(scalar);
    writer.WriteObjectType(value.GetType());
    writer.WriteDataInternal(&scalar, sizeof scalar);
}

template <class T>
void WriteWithOwnWriter(TulWriter& writer, const Variant& value)
{
    T object{};
    value.GetValue(object);
    writer.WriteObjectType(value.GetType());
    object.Write(writer);
}

// WriteObjectString takes the text up to its NUL; a value area filled in place need not hold one.
const char* GetTerminatedChars(const Variant& value)
{
    const char* text = value.GetChars();
    if (SecureStrnlen(text, stringCapacity) == stringCapacity)
    {
        throw ArgumentException(
            "Cannot write string: TulVariant text is not terminated within MaxStringSize {}", stringCapacity);
    }
    return text;
}

Variant ReadScalar(TulReader& reader, TulType storedAs, std::size_t size)
{
    Variant value(storedAs);
    reader.ReadDataInternal(value.GetData(), size);
    return value;
}

Variant ReadString(TulReader& reader, TulType storedAs)
{
    Variant value(storedAs);
    reader.ReadStringInternal(static_cast<char*>(value.GetData()), stringCapacity, stringEncoding, false);
    return value;
}
}  // namespace

void TulVariantSerializer::EnsureDateTimeKindIsSpecified(const DateTime& value)
{
    if (value.GetKind() == DateTimeKind::Unspecified)
    {
        throw NotSupportedException("DateTimeKind Unspecified not supported.");
    }
}

void TulVariantSerializer::WriteElement(TulWriter& writer, const Variant& value)
{
    switch (static_cast<std::uint8_t>(value.GetType()))
    {
        case 1:  // Void
            writer.WriteObjectType(TulType::Void);
            return;
        case 2:  // Bool
            WriteScalar<bool>(writer, value);
            return;
        case 4:  // Int8
            WriteScalar<std::int8_t>(writer, value);
            return;
        case 5:  // UInt8
            WriteScalar<std::uint8_t>(writer, value);
            return;
        case 6:  // Int16
            WriteScalar<std::int16_t>(writer, value);
            return;
        case 7:  // UInt16
            WriteScalar<std::uint16_t>(writer, value);
            return;
        case 8:   // Int32
        case 41:  // Alias32
            WriteScalar<std::int32_t>(writer, value);
            return;
        case 9:  // UInt32
            WriteScalar<std::uint32_t>(writer, value);
            return;
        case 10:  // Int64
        case 42:  // the Alias64 codes
        case 44:
        case 46:
        case 48:
            WriteScalar<std::int64_t>(writer, value);
            return;
        case 11:  // UInt64
            WriteScalar<std::uint64_t>(writer, value);
            return;
        case 12:  // Real32
            WriteScalar<float>(writer, value);
            return;
        case 13:  // Real64
            WriteScalar<double>(writer, value);
            return;
        case 18:  // Struct: the header only, its fields are elements of their own
            value.SetWriter(&writer);
            writer.WriteBeginStruct(value.GetFieldCount());
            return;
        case 19:  // String
            writer.WriteObjectString(GetTerminatedChars(value), stringEncoding);
            return;
        case 20:  // Array: the header only, its elements are elements of their own
            value.SetWriter(&writer);
            writer.WriteArrayInformation(value.GetArrayInformation());
            return;
        case 23:  // DateTime
        {
            DateTime dateTime;
            value.GetValue(dateTime);
            writer.WriteObjectType(TulType::DateTime);
            EnsureDateTimeKindIsSpecified(dateTime);
            writer.WriteDateTime(dateTime);
            return;
        }
        case 24:  // Version
            WriteWithOwnWriter<Tul::TulVersion>(writer, value);
            return;
        case 25:  // Guid
            WriteWithOwnWriter<Tul::TulGuid>(writer, value);
            return;
        case 36:  // String36
            writer.WriteObjectType(TulType::String36);
            writer.WriteStringInternal(value.GetChars(), stringCapacity, stringEncoding, false);
            return;
        default:
            throw NotSupportedException("DataType '{0}' not supported by TulVariant.", value.GetType());
    }
}

Variant TulVariantSerializer::ReadElement(TulReader& reader)
{
    const TulType type = reader.ReadObjectType();
    switch (static_cast<std::uint8_t>(type))
    {
        case 1:  // Void
            return Variant(TulType::Void);
        case 2:  // Bool
        case 4:  // Int8
        case 5:  // UInt8
            return ReadScalar(reader, type, 1);
        case 6:  // Int16
        case 7:  // UInt16
            return ReadScalar(reader, type, 2);
        case 8:   // Int32
        case 9:   // UInt32
        case 12:  // Real32
            return ReadScalar(reader, type, 4);
        case 10:  // Int64
        case 11:  // UInt64
        case 13:  // Real64
            return ReadScalar(reader, type, 8);
        case 41:  // Alias32 comes back as a plain Int32
            return ReadScalar(reader, TulType::Int32, 4);
        case 42:  // the Alias64 codes come back as a plain Int64
        case 44:
        case 46:
        case 48:
            return ReadScalar(reader, TulType::Int64, 8);
        case 18:  // Struct: the zeroed value has empty reader and writer slots
        {
            Variant value(TulType::Struct);
            value.SetReader(&reader);
            value.SetFieldCount(reader.ReadFieldCount());
            return value;
        }
        case 19:  // String
        case 36:  // String36
            return ReadString(reader, type);
        case 20:  // Array
        {
            Variant value(TulType::Array);
            value.SetReader(&reader);
            value.SetArrayInformation(reader.ReadArrayInformation());
            return value;
        }
        case 23:  // DateTime
        {
            const DateTime dateTime = reader.ReadDateTime();
            EnsureDateTimeKindIsSpecified(dateTime);
            return Variant(dateTime);
        }
        case 24:  // Version
        case 25:  // Guid
            throw NotImplementedException(
                "Type TulVersion and TulGuid are currently not supported by TulVariant");
        default:
            throw NotSupportedException("TulType {0} not supported.", type);
    }
}

void TulVariantSerializer::WritePayload(TulWriter& writer, const std::vector<Variant>& payload)
{
    writer.WriteTag(TulType::Array);
    writer.WriteTag(TulType::Object);
    writer.WriteArrayLength(static_cast<std::uint32_t>(payload.size()));
    for (const Variant& value : payload)
    {
        WriteElement(writer, value);
    }
}

void TulVariantSerializer::ReadPayload(TulReader& reader, std::vector<Variant>& payload)
{
    reader.ReadTag(TulType::Array);
    reader.ReadTag(TulType::Object);
    // The reader bounds the length by the bytes left, but an element may be one byte on the wire and
    // over 500 in memory: the memory bound decides before the whole length is reserved.
    const std::uint32_t length = reader.ReadArrayLength();
    const std::size_t limit = Tul::ServiceManager::GetMaxPayloadMemory();
    const std::size_t elements = payload.size() + length;
    if (elements > limit / sizeof(Variant))
    {
        throw ArgumentException(
            "A payload of {0} fields would take {1} bytes in memory, more than the {2} bytes allowed",
            elements, static_cast<std::uint64_t>(elements) * sizeof(Variant), limit);
    }
    payload.reserve(elements);
    for (std::uint32_t index = 0; index < length; ++index)
    {
        payload.push_back(ReadElement(reader));
    }
}
}  // namespace Kiv::System::Nm::Internal
