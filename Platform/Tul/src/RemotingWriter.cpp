#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <cstring>
#include <limits>

// The byte form is little-endian, and data go out as they lie in memory.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the wire form assumes a little-endian host");

namespace Kiv::System::Tul
{
TulWriter::~TulWriter() = default;

RemotingWriter::RemotingWriter(std::size_t initialCapacity)
{
    buffer.reserve(initialCapacity);
}

void RemotingWriter::Append(const void* data, std::size_t size)
{
    if (size == 0)
    {
        return;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    buffer.insert(buffer.end(), bytes, bytes + size);
}

void RemotingWriter::AppendCode(TulType code)
{
    buffer.push_back(static_cast<std::uint8_t>(code));
}

void RemotingWriter::AppendUInt32(std::uint32_t value)
{
    Append(&value, sizeof value);
}

void RemotingWriter::AppendText(const char* text, std::size_t length)
{
    if (length > std::numeric_limits<std::uint32_t>::max())
    {
        throw ArgumentException("String of {0} bytes is too long for a message", length);
    }
    AppendUInt32(static_cast<std::uint32_t>(length));
    Append(text, length);
}

void RemotingWriter::WriteTag(TulType tag)
{
    AppendCode(tag);
}

void RemotingWriter::WriteObjectType(TulType type)
{
    AppendCode(type);
}

void RemotingWriter::WriteDataInternal(const void* data, std::size_t size)
{
    if (data == nullptr && size != 0)
    {
        throw ArgumentException("WriteDataInternal: null data of {0} bytes", size);
    }
    Append(data, size);
}

void RemotingWriter::WriteArrayLength(std::uint32_t length)
{
    AppendUInt32(length);
}

void RemotingWriter::WriteDateTime(const DateTime& value)
{
    const std::uint64_t raw = value.GetRawValue();
    Append(&raw, sizeof raw);
}

void RemotingWriter::WriteObjectString(const char* text, TulStringEncoding)
{
    if (text == nullptr)
    {
        throw ArgumentException("WriteObjectString: the text is null");
    }
    AppendCode(TulType::String);
    AppendText(text, std::strlen(text));
}

void RemotingWriter::WriteStringInternal(const char* text, std::size_t capacity, TulStringEncoding,
                                         bool withCode)
{
    if (text == nullptr)
    {
        throw ArgumentException("WriteStringInternal: the text is null");
    }
    // Reads no further than the capacity, so a buffer without NUL is refused and not overrun.
    const std::size_t length = strnlen(text, capacity);
    if (length == capacity)
    {
        throw ArgumentException("WriteStringInternal: the text does not fit its capacity of {0} bytes",
                                capacity);
    }
    if (withCode)
    {
        AppendCode(TulType::String);
    }
    AppendText(text, length);
}

void RemotingWriter::WriteBeginStruct(std::uint32_t fieldCount)
{
    AppendCode(TulType::Struct);
    AppendUInt32(fieldCount);
}

void RemotingWriter::WriteArrayInformation(const TulArrayInformation& information)
{
    AppendCode(TulType::Array);
    AppendUInt32(information.elementType);
    AppendUInt32(information.rank);
    AppendUInt32(information.length);
    AppendUInt32(information.lowerBound);
}

void RemotingWriter::WriteConfirmation(bool isError)
{
    buffer.push_back(isError ? 1 : 0);
}
}  // namespace Kiv::System::Tul
