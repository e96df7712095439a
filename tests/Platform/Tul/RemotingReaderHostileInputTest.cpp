#include "Platform/Tul/RemotingSample.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <random>

using namespace Kiv::System::Tul;
using Bytes = std::vector<std::uint8_t>;

namespace
{
const char* const noException = "no exception";

// The message of the CommunicationException that `read` raises on a reader over a heap copy of exactly
// `bytes`, so that the address sanitizer sees a read past the end. Any other exception fails the test.
std::string FailureOf(const Bytes& bytes, const std::function<void(TulReader&)>& read)
{
    auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    RemotingReader reader(copy.get(), bytes.size());
    try
    {
        read(reader);
    }
    catch (const Kiv::CommunicationException& e)
    {
        return e.what();
    }
    return noException;
}

void CopySample(TulReader& reader)
{
    RemotingWriter sink;
    Sample::Copy(reader, sink);
}

Bytes SampleMessage()
{
    RemotingWriter writer;
    Sample::Write(writer);
    return writer.GetBuffer();
}
}  // namespace

TEST(RemotingReaderHostileInputTest, EveryTruncationOfAValidMessageRaises)
{
    const Bytes message = SampleMessage();
    for (std::size_t length = 0; length < message.size(); ++length)
    {
        EXPECT_NE(FailureOf(Bytes(message.begin(), message.begin() + length), CopySample), noException)
            << length;
    }
    EXPECT_EQ(FailureOf(message, CopySample), noException);
}

TEST(RemotingReaderHostileInputTest, CorruptedBytesRaiseNothingButCommunicationException)
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
        FailureOf(corrupted, CopySample);  // some corruptions stay readable
    }
}

TEST(RemotingReaderHostileInputTest, WrongCodesAndHeadersRaiseWithOffsetExpectedAndFound)
{
    EXPECT_EQ(
        FailureOf({9, 19}, [](TulReader& r) { r.ReadTag(TulType::UInt32), r.ReadTag(TulType::UInt32); }),
        "Malformed message at offset 1: expected tag UInt32, found tag String");
    EXPECT_EQ(FailureOf({200}, [](TulReader& r) { r.ReadTag(TulType::Bool); }),
              "Malformed message at offset 0: expected tag Bool, found tag 200");
    EXPECT_EQ(FailureOf({18, 5, 0, 0, 0}, [](TulReader& r) { r.ReadBeginStruct(6); }),
              "Malformed message at offset 1: expected a structure of 6 fields, found 5 fields");
    EXPECT_EQ(FailureOf({2}, [](TulReader& r) { r.ReadConfirmation(); }),
              "Malformed message at offset 0: expected a confirmation of 0 or 1, found 2");
    EXPECT_EQ(FailureOf({20, 6, 0, 0, 0}, [](TulReader& r) { r.ReadBeginStruct(6); }),
              "Malformed message at offset 0: expected object type Struct, found object type Array");
    Bytes structHeader{18, 1, 0, 0, 0};
    structHeader.resize(17);
    EXPECT_NE(FailureOf(structHeader, [](TulReader& r) { r.ReadArrayInformation(); }), noException);
    // Only the object type read just before stands in for a header's code.
    EXPECT_NE(FailureOf({18, 6, 0, 0, 0}, [](TulReader& r) { r.ReadFieldCount(), r.ReadFieldCount(); }),
              noException);
    EXPECT_NE(FailureOf({19, 6, 0, 0, 0}, [](TulReader& r) { r.ReadObjectType(), r.ReadFieldCount(); }),
              noException);
}

TEST(RemotingReaderHostileInputTest, ArrayLengthMustFitTheRestOfTheMessage)
{
    EXPECT_EQ(FailureOf({0xFF, 0xFF, 0xFF, 0xFF, 1, 2}, [](TulReader& r) { r.ReadArrayLength(); }),
              "Malformed message at offset 0: expected an array length of at most 2, found 4294967295");
    EXPECT_NE(FailureOf({4, 0, 0, 0, 1, 2, 3}, [](TulReader& r) { r.ReadArrayLength(); }), noException);
    EXPECT_EQ(FailureOf({3, 0, 0, 0, 1, 2, 3}, [](TulReader& r) { EXPECT_EQ(r.ReadArrayLength(), 3u); }),
              noException);
}

TEST(RemotingReaderHostileInputTest, StringBeyondCapacityOrMessageRaisesAndLeavesTheBufferTerminated)
{
    Bytes fitsMessageNotCapacity{19, 0x58, 0x02, 0, 0};  // 600 bytes
    fitsMessageNotCapacity.resize(5 + 600, 'a');
    const std::pair<Bytes, std::string> cases[] = {{{19, 0xFF, 0xFF, 0xFF, 0xFF, 'a'},
                                                    "Malformed message at offset 1: expected a string of at "
                                                    "most 511 bytes, found a string of 4294967295 "
                                                    "bytes"},
                                                   {fitsMessageNotCapacity,
                                                    "Malformed message at offset 1: expected a string of at "
                                                    "most 511 bytes, found a string of 600 bytes"},
                                                   {{19, 10, 0, 0, 0, 'a', 'b', 'c'},
                                                    "Malformed message at offset 5: expected string of 10 "
                                                    "bytes, found the end of the message after 3 bytes"},
                                                   {{19, 8, 0, 0},
                                                    "Malformed message at offset 1: expected string length "
                                                    "of 4 bytes, found the end of the message after 3 "
                                                    "bytes"}};
    for (const auto& [bytes, message] : cases)
    {
        char buffer[512];
        std::memset(buffer, 'q', sizeof buffer);
        EXPECT_EQ(FailureOf(bytes, [&buffer](TulReader& r)
                            { r.ReadStringInternal(buffer, sizeof buffer, Sample::utf8, true); }),
                  message);
        EXPECT_EQ(buffer[0], '\0');
    }
    // The capacity counts the NUL: 3 characters fit 4 bytes, not 3.
    char small[4];
    const Bytes abc{3, 0, 0, 0, 'a', 'b', 'c'};
    EXPECT_NE(FailureOf(abc, [&small](TulReader& r) { r.ReadStringInternal(small, 3, Sample::utf8, false); }),
              noException);
    EXPECT_EQ(FailureOf(abc, [&small](TulReader& r) { r.ReadStringInternal(small, 4, Sample::utf8, false); }),
              noException);
    EXPECT_STREQ(small, "abc");
}
