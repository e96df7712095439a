#include "Platform/Tul/RemotingSample.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>

using namespace Kiv::System::Tul;
using Bytes = std::vector<std::uint8_t>;

namespace
{
Bytes SampleMessage()
{
    RemotingWriter writer;
    Sample::Write(writer, Sample::Expected());
    return writer.GetBuffer();
}

// The message of a CommunicationException from `read` on a reader over exactly `bytes`, kept on the heap
// so that the address sanitizer sees any read past the end.
template <class Read>
std::string FailureOf(const Bytes& bytes, Read read)
{
    auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
    if (!bytes.empty())
    {
        std::memcpy(copy.get(), bytes.data(), bytes.size());
    }
    RemotingReader reader(copy.get(), bytes.size());
    try
    {
        read(reader);
    }
    catch (const Kiv::CommunicationException& e)
    {
        return e.what();
    }
    return "no exception";
}
}  // namespace

TEST(RemotingReaderHostileInputTest, EveryTruncationOfAValidMessageRaises)
{
    const Bytes message = SampleMessage();
    for (std::size_t length = 0; length < message.size(); ++length)
    {
        const Bytes truncated(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_NE(FailureOf(truncated, [](TulReader& r) { Sample::Read(r); }), "no exception") << length;
    }
    EXPECT_EQ(FailureOf(message, [](TulReader& r) { Sample::Read(r); }), "no exception");
}

TEST(RemotingReaderHostileInputTest, CorruptedBytesRaiseOnlyCommunicationException)
{
    const Bytes message = SampleMessage();
    std::mt19937 random(20240611);
    for (int round = 0; round < 3000; ++round)
    {
        Bytes corrupted = message;
        for (int flips = 1 + round % 3; flips > 0; --flips)
        {
            corrupted[random() % corrupted.size()] = static_cast<std::uint8_t>(random());
        }
        // Any other exception type or a crash fails here; some corruptions stay readable.
        FailureOf(corrupted, [](TulReader& r) { Sample::Read(r); });
    }
}

TEST(RemotingReaderHostileInputTest, MessagesNameOffsetExpectedAndFound)
{
    EXPECT_EQ(
        FailureOf({9, 19}, [](TulReader& r) { r.ReadTag(TulType::UInt32), r.ReadTag(TulType::UInt32); }),
        "Malformed message at offset 1: expected tag UInt32, found tag String");
    EXPECT_EQ(FailureOf({200}, [](TulReader& r) { r.ReadTag(TulType::Bool); }),
              "Malformed message at offset 0: expected tag Bool, found tag 200");
    EXPECT_EQ(FailureOf({1, 2}, [](TulReader& r) { r.ReadArrayLength(); }),
              "Malformed message at offset 0: expected array length of 4 bytes, found the end of the message "
              "after 2 bytes");
    EXPECT_EQ(FailureOf({18, 5, 0, 0, 0}, [](TulReader& r) { r.ReadBeginStruct(6); }),
              "Malformed message at offset 1: expected a structure of 6 fields, found 5 fields");
    EXPECT_EQ(FailureOf({2}, [](TulReader& r) { r.ReadConfirmation(); }),
              "Malformed message at offset 0: expected a confirmation of 0 or 1, found 2");
}

TEST(RemotingReaderHostileInputTest, HeadersOfTheWrongKindRaise)
{
    EXPECT_NE(FailureOf({20, 6, 0, 0, 0}, [](TulReader& r) { r.ReadBeginStruct(6); }), "no exception");
    EXPECT_NE(FailureOf({18, 6, 0, 0, 0}, [](TulReader& r) { r.ReadFieldCount(), r.ReadFieldCount(); }),
              "no exception");
    Bytes structHeader{18, 1, 0, 0, 0};
    structHeader.resize(17, 0);
    EXPECT_NE(FailureOf(structHeader, [](TulReader& r) { r.ReadArrayInformation(); }), "no exception");
    // An object type read of another code doesn't stand in for the header's code.
    EXPECT_NE(FailureOf({19, 6, 0, 0, 0}, [](TulReader& r) { r.ReadObjectType(), r.ReadFieldCount(); }),
              "no exception");
}

TEST(RemotingReaderHostileInputTest, ArrayLengthMustFitTheRestOfTheMessage)
{
    EXPECT_EQ(FailureOf({0xFF, 0xFF, 0xFF, 0xFF, 1, 2}, [](TulReader& r) { r.ReadArrayLength(); }),
              "Malformed message at offset 0: expected an array length of at most 2, found 4294967295");
    EXPECT_NE(FailureOf({4, 0, 0, 0, 1, 2, 3}, [](TulReader& r) { r.ReadArrayLength(); }), "no exception");
    EXPECT_EQ(FailureOf({3, 0, 0, 0, 1, 2, 3}, [](TulReader& r) { EXPECT_EQ(r.ReadArrayLength(), 3u); }),
              "no exception");
}

TEST(RemotingReaderHostileInputTest, StringBeyondCapacityOrMessageRaisesAndLeavesTheBufferTerminated)
{
    Bytes fitsMessageNotCapacity{19, 0x58, 0x02, 0, 0};  // 600 bytes
    fitsMessageNotCapacity.resize(5 + 600, 'a');
    const std::vector<std::pair<Bytes, std::string>> cases = {
        {{19, 0xFF, 0xFF, 0xFF, 0xFF, 'a'},
         "Malformed message at offset 1: expected a string of at most 511 bytes, found a string of "
         "4294967295 "
         "bytes"},
        {fitsMessageNotCapacity,
         "Malformed message at offset 1: expected a string of at most 511 bytes, found a string of 600 "
         "bytes"},
        {{19, 10, 0, 0, 0, 'a', 'b', 'c'},
         "Malformed message at offset 5: expected string of 10 bytes, found the end of the message after 3 "
         "bytes"},
        {{19, 8, 0, 0},
         "Malformed message at offset 1: expected string length of 4 bytes, found the end of the "
         "message after 3 bytes"}};
    for (const auto& [bytes, message] : cases)
    {
        char buffer[512];
        std::memset(buffer, 'q', sizeof buffer);
        EXPECT_EQ(FailureOf(bytes, [&buffer](TulReader& r)
                            { r.ReadStringInternal(buffer, sizeof buffer, TulStringEncoding::Utf8, true); }),
                  message);
        EXPECT_EQ(buffer[0], '\0');
    }
    // Capacity counts the NUL: 3 bytes fit a capacity of 4, not of 3.
    char small[4];
    EXPECT_EQ(FailureOf({3, 0, 0, 0, 'a', 'b', 'c'}, [&small](TulReader& r)
                        { r.ReadStringInternal(small, 4, TulStringEncoding::Utf8, false); }),
              "no exception");
    EXPECT_STREQ(small, "abc");
    EXPECT_NE(FailureOf({3, 0, 0, 0, 'a', 'b', 'c'}, [&small](TulReader& r)
                        { r.ReadStringInternal(small, 3, TulStringEncoding::Utf8, false); }),
              "no exception");
}
