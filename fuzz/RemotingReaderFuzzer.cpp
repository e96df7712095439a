// RemotingReader over hostile bytes, driven by a fuzzer-chosen sequence of reads.
//
// Input: a count n (first byte), n pairs (operation, argument), then the message. The message is the
// tail of the fuzzer's buffer, which is a heap block of exactly the input's size, so a read past the
// end of the message is a read past the block that AddressSanitizer reports. Every read is followed by
// checks of what it returned against the bytes it consumed; a failed read must raise
// CommunicationException and nothing else, and ends the message.

#include "FuzzCheck.h"
#include "ReaderOperations.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/TulExceptionRegistry.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::TulExceptionRegistry;
using Kiv::System::Tul::TulStringEncoding;
using Kiv::System::Tul::TulType;

namespace
{
using namespace KivFuzz::Reads;

struct Message
{
    const std::uint8_t* bytes;
    std::size_t size;
};

void ReadString(RemotingReader& reader, const Message& message, std::uint8_t argument)
{
    // Capacities from 1 to 64 reach the boundaries with short inputs; 512 is that of the service strings.
    const std::size_t capacity = (argument & 0x40) != 0 ? 512 : 1 + (argument & 0x3F);
    const bool withCode = (argument & 0x80) != 0;
    const auto buffer = std::make_unique<char[]>(capacity);
    std::memset(buffer.get(), 'x', capacity);
    const std::size_t before = reader.GetPosition();
    try
    {
        reader.ReadStringInternal(buffer.get(), capacity, TulStringEncoding::Utf8, withCode);
    }
    catch (const Kiv::CommunicationException&)
    {
        KIV_FUZZ_CHECK(strnlen(buffer.get(), capacity) < capacity);  // terminated also after a failure
        throw;
    }
    const std::size_t length = strnlen(buffer.get(), capacity);
    KIV_FUZZ_CHECK(length < capacity);
    const std::size_t lengthAt = before + (withCode ? 1 : 0);
    std::uint32_t announced = 0;
    std::memcpy(&announced, message.bytes + lengthAt, sizeof announced);
    KIV_FUZZ_CHECK(reader.GetPosition() == lengthAt + sizeof announced + announced);
    KIV_FUZZ_CHECK(std::memcmp(buffer.get(), message.bytes + lengthAt + sizeof announced, length) == 0);
}

void Run(RemotingReader& reader, const Message& message, std::uint8_t operation, std::uint8_t argument)
{
    const std::size_t before = reader.GetPosition();
    switch (operation % OperationCount)
    {
        case Tag:
            reader.ReadTag(static_cast<TulType>(argument));
            KIV_FUZZ_CHECK(reader.GetPosition() == before + 1 && message.bytes[before] == argument);
            return;
        case ObjectType:
        {
            const TulType type = reader.ReadObjectType();
            KIV_FUZZ_CHECK(reader.GetPosition() == before + 1 &&
                           message.bytes[before] == static_cast<std::uint8_t>(type));
            return;
        }
        case Data:
        {
            const std::size_t size = argument % 17;
            std::uint8_t value[16];
            reader.ReadDataInternal(value, size);
            KIV_FUZZ_CHECK(reader.GetPosition() == before + size);
            KIV_FUZZ_CHECK(size == 0 || std::memcmp(value, message.bytes + before, size) == 0);
            return;
        }
        case ArrayLength:
        {
            const std::uint32_t length = reader.ReadArrayLength();
            // The promise to the caller: the rest of the message can hold that many elements.
            KIV_FUZZ_CHECK(length <= reader.GetRemaining());
            std::vector<std::uint8_t> elements;
            elements.reserve(length);
            return;
        }
        case DateTime:
            reader.ReadDateTime();
            KIV_FUZZ_CHECK(reader.GetPosition() == before + 8);
            return;
        case String:
            return ReadString(reader, message, argument);
        case BeginStruct:
            reader.ReadBeginStruct(argument);
            return;
        case FieldCount:
            reader.ReadFieldCount();
            return;
        case ArrayInformation:
            reader.ReadArrayInformation();
            return;
        case Confirmation:
        {
            const bool isError = reader.ReadConfirmation();
            KIV_FUZZ_CHECK(message.bytes[before] == (isError ? 1 : 0));
            return;
        }
        case FailureReport:
            // What a caller does with the body of a failed call: throws the exception it carries.
            try
            {
                TulExceptionRegistry::Throw(reader);
            }
            catch (const Kiv::CommunicationException&)
            {
                throw;
            }
            catch (const Kiv::Exception&)
            {
                return;
            }
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
    {
        return 0;
    }
    const std::size_t operations = std::min<std::size_t>(data[0], (size - 1) / 2);
    const std::uint8_t* script = data + 1;
    const Message message{script + 2 * operations, size - 1 - 2 * operations};
    RemotingReader reader(message.size == 0 ? nullptr : message.bytes, message.size);
    for (std::size_t i = 0; i < operations; ++i)
    {
        const std::size_t before = reader.GetPosition();
        try
        {
            Run(reader, message, script[2 * i], script[2 * i + 1]);
        }
        catch (const Kiv::CommunicationException&)
        {
            // The message is dropped here, as a caller drops it; the reader stayed within its bytes.
            KIV_FUZZ_CHECK(reader.GetPosition() <= message.size);
            return 0;
        }
        KIV_FUZZ_CHECK(reader.GetPosition() >= before && reader.GetPosition() <= message.size);
        KIV_FUZZ_CHECK(reader.GetRemaining() == message.size - reader.GetPosition());
    }
    return 0;
}
