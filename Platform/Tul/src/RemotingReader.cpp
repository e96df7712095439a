#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>

#include <cstring>

namespace Kiv::System::Tul
{
namespace
{
constexpr const char* malformedMessage = "Malformed message at offset {0}: expected {1}, found {2}";

String Bytes(std::size_t count)
{
    return String(fmt::format("{} byte{}", count, count == 1 ? "" : "s"));
}
}  // namespace

TulReader::~TulReader() = default;

RemotingReader::RemotingReader(const void* data, std::size_t size)
    : data(static_cast<const std::uint8_t*>(data)), size(size)
{
    if (data == nullptr && size != 0)
    {
        throw ArgumentException("RemotingReader: null data of {0} bytes", size);
    }
}

void RemotingReader::ThrowMalformed(std::size_t offset, const String& expected, const String& found) const
{
    throw CommunicationException(malformedMessage, offset, expected, found);
}

void RemotingReader::Take(void* out, std::size_t count, const char* what)
{
    if (count > GetRemaining())
    {
        ThrowMalformed(position, String(fmt::format("{} of {}", what, Bytes(count))),
                       String(fmt::format("the end of the message after {}", Bytes(GetRemaining()))));
    }
    if (count != 0)
    {
        std::memcpy(out, data + position, count);
    }
    position += count;
}

std::uint8_t RemotingReader::TakeByte(const char* what)
{
    std::uint8_t value = 0;
    Take(&value, 1, what);
    return value;
}

std::uint32_t RemotingReader::TakeUInt32(const char* what)
{
    std::uint32_t value = 0;
    Take(&value, sizeof value, what);
    return value;
}

void RemotingReader::ExpectCode(TulType expected, const char* what)
{
    const std::size_t offset = position;
    const auto found = static_cast<TulType>(TakeByte(what));
    if (found != expected)
    {
        ThrowMalformed(offset, String(fmt::format("{} {}", what, expected)),
                       String(fmt::format("{} {}", what, found)));
    }
}

void RemotingReader::ExpectHeaderCode(TulType expected)
{
    const TulType alreadyRead = headerCodeRead;
    headerCodeRead = TulType::None;
    if (alreadyRead != expected)
    {
        ExpectCode(expected, "object type");
    }
}

void RemotingReader::ReadTag(TulType expected)
{
    headerCodeRead = TulType::None;
    ExpectCode(expected, "tag");
}

TulType RemotingReader::ReadObjectType()
{
    headerCodeRead = TulType::None;
    const auto type = static_cast<TulType>(TakeByte("object type"));
    if (type == TulType::Struct || type == TulType::Array)
    {
        headerCodeRead = type;
    }
    return type;
}

void RemotingReader::ReadDataInternal(void* out, std::size_t count)
{
    headerCodeRead = TulType::None;
    if (out == nullptr && count != 0)
    {
        throw ArgumentException("ReadDataInternal: null buffer for {0} bytes", count);
    }
    Take(out, count, "data");
}

std::uint32_t RemotingReader::ReadArrayLength()
{
    headerCodeRead = TulType::None;
    const std::size_t offset = position;
    const std::uint32_t length = TakeUInt32("array length");
    // Every element takes a byte at least, so a longer array cannot be in this message; the check makes
    // it safe for the caller to reserve the announced length.
    if (length > GetRemaining())
    {
        ThrowMalformed(offset, String(fmt::format("an array length of at most {}", GetRemaining())),
                       String(fmt::format("{}", length)));
    }
    return length;
}

DateTime RemotingReader::ReadDateTime()
{
    headerCodeRead = TulType::None;
    std::uint64_t raw = 0;
    Take(&raw, sizeof raw, "date and time");
    return DateTime::FromRawValue(raw);
}

void RemotingReader::ReadStringInternal(char* buffer, std::size_t capacity, TulStringEncoding, bool withCode)
{
    headerCodeRead = TulType::None;
    if (buffer == nullptr || capacity == 0)
    {
        throw ArgumentException("ReadStringInternal: no buffer to read into (capacity {0})", capacity);
    }
    buffer[0] = '\0';
    if (withCode)
    {
        ExpectCode(TulType::String, "tag");
    }
    const std::size_t offset = position;
    const std::uint32_t length = TakeUInt32("string length");
    if (length >= capacity)
    {
        ThrowMalformed(offset, String(fmt::format("a string of at most {}", Bytes(capacity - 1))),
                       String(fmt::format("a string of {}", Bytes(length))));
    }
    Take(buffer, length, "string");
    buffer[length] = '\0';
}

void RemotingReader::ReadBeginStruct(std::uint32_t expectedFieldCount)
{
    ExpectHeaderCode(TulType::Struct);
    const std::size_t offset = position;
    const std::uint32_t fieldCount = TakeUInt32("field count");
    if (fieldCount != expectedFieldCount)
    {
        ThrowMalformed(offset, String(fmt::format("a structure of {} fields", expectedFieldCount)),
                       String(fmt::format("{} fields", fieldCount)));
    }
}

std::uint32_t RemotingReader::ReadFieldCount()
{
    ExpectHeaderCode(TulType::Struct);
    return TakeUInt32("field count");
}

TulArrayInformation RemotingReader::ReadArrayInformation()
{
    // The length is not checked against the message: the header is a value of its own, and the elements
    // it counts need not follow it. Nothing is allocated from it here.
    ExpectHeaderCode(TulType::Array);
    TulArrayInformation information;
    information.elementType = TakeUInt32("array element type");
    information.rank = TakeUInt32("array rank");
    information.length = TakeUInt32("array length");
    information.lowerBound = TakeUInt32("array lower bound");
    return information;
}

bool RemotingReader::ReadConfirmation()
{
    headerCodeRead = TulType::None;
    const std::size_t offset = position;
    const std::uint8_t flag = TakeByte("confirmation");
    if (flag > 1)
    {
        ThrowMalformed(offset, "a confirmation of 0 or 1", String(fmt::format("{}", flag)));
    }
    return flag == 1;
}
}  // namespace Kiv::System::Tul
