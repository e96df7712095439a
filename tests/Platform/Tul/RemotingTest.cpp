#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>

using namespace Kiv::System::Tul;
using Bytes = std::vector<std::uint8_t>;

namespace
{
constexpr auto utf8 = TulStringEncoding::Utf8;
const char* const noException = "no exception";

// A message that uses every write call, and a copy that reads it call for call and writes what it read:
// the copy's bytes equal the original's only if every read gave back its value.
void WriteSample(TulWriter& w)
{
    const std::uint32_t number = 0x04030201;
    const std::int32_t negative = -7;
    w.WriteBeginStruct(6);
    w.WriteTag(TulType::UInt32);
    w.WriteDataInternal(&number, 4);
    w.WriteTag(TulType::DateTime);
    w.WriteDateTime(Kiv::DateTime::FromRawValue(0x4000000000000005));
    w.WriteStringInternal(std::string(511, 'x').c_str(), 512, utf8, true);  // the longest that fits
    w.WriteTag(TulType::Array);
    w.WriteTag(TulType::Object);
    w.WriteArrayLength(5);
    w.WriteObjectType(TulType::Int32);
    w.WriteDataInternal(&negative, 4);
    w.WriteObjectString("hello", utf8);
    w.WriteObjectType(TulType::String36);
    w.WriteStringInternal("c", 2, utf8, false);  // fits with its NUL
    w.WriteBeginStruct(2);
    w.WriteArrayInformation({28, 1, 3, 0});
    w.WriteConfirmation(false);
    w.WriteConfirmation(true);
}

void CopySample(TulReader& r, TulWriter& w)
{
    std::uint8_t data[16];
    char text[512];
    auto copyData = [&](std::size_t size)
    {
        r.ReadDataInternal(data, size);
        w.WriteDataInternal(data, size);
    };
    auto copyTag = [&](TulType tag)
    {
        r.ReadTag(tag);
        w.WriteTag(tag);
    };
    auto copyText = [&](bool withCode)
    {
        r.ReadStringInternal(text, sizeof text, utf8, withCode);
        w.WriteStringInternal(text, sizeof text, utf8, withCode);
    };
    r.ReadBeginStruct(6);
    w.WriteBeginStruct(6);
    copyTag(TulType::UInt32);
    copyData(4);
    copyTag(TulType::DateTime);
    w.WriteDateTime(r.ReadDateTime());
    copyText(true);
    copyTag(TulType::Array);
    copyTag(TulType::Object);
    w.WriteArrayLength(r.ReadArrayLength());
    w.WriteObjectType(r.ReadObjectType());
    copyData(4);
    for (int i = 0; i < 2; ++i)
    {
        w.WriteObjectType(r.ReadObjectType());
        copyText(false);
    }
    if (r.ReadObjectType() == TulType::Struct)
    {
        w.WriteBeginStruct(r.ReadFieldCount());
    }
    if (r.ReadObjectType() == TulType::Array)
    {
        w.WriteArrayInformation(r.ReadArrayInformation());
    }
    w.WriteConfirmation(r.ReadConfirmation());
    w.WriteConfirmation(r.ReadConfirmation());
}

Bytes SampleMessage()
{
    RemotingWriter writer;
    WriteSample(writer);
    return writer.GetBuffer();
}

void ReadSample(TulReader& reader)
{
    RemotingWriter sink;
    CopySample(reader, sink);
}

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
}  // namespace

TEST(RemotingTest, EveryWriteHasAFixedByteFormAndReadsBackWithItsValue)
{
    // clang-format off
    Bytes expected = {
        18, 6, 0, 0, 0,
        9, 1, 2, 3, 4,
        23, 5, 0, 0, 0, 0, 0, 0, 0x40,
        19, 0xFF, 1, 0, 0};
    expected.insert(expected.end(), 511, 'x');
    const Bytes rest = {
        20, 28, 5, 0, 0, 0,
        8, 0xF9, 0xFF, 0xFF, 0xFF,
        19, 5, 0, 0, 0, 'h', 'e', 'l', 'l', 'o',
        36, 1, 0, 0, 0, 'c',
        18, 2, 0, 0, 0,
        20, 28, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0,
        0, 1};
    // clang-format on
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(SampleMessage(), expected);

    RemotingReader reader(expected.data(), expected.size());
    RemotingWriter copy;
    CopySample(reader, copy);
    EXPECT_EQ(copy.GetBuffer(), expected);
    EXPECT_TRUE(reader.IsAtEnd());
}

TEST(RemotingTest, WriterRefusesStringsBeyondCapacityWithoutWriting)
{
    RemotingWriter writer;
    EXPECT_THROW(writer.WriteStringInternal(std::string(512, 'y').c_str(), 512, utf8, true),
                 Kiv::ArgumentException);
    // A full buffer without NUL is refused without reading past it.
    const auto unterminated = std::make_unique<char[]>(8);
    std::memset(unterminated.get(), 'z', 8);
    EXPECT_THROW(writer.WriteStringInternal(unterminated.get(), 8, utf8, false), Kiv::ArgumentException);
    EXPECT_EQ(writer.GetSize(), 0u);
}

TEST(RemotingReaderHostileInputTest, EveryTruncationOfAValidMessageRaisesAndCorruptionsRaiseNothingElse)
{
    const Bytes message = SampleMessage();
    for (std::size_t length = 0; length < message.size(); ++length)
    {
        EXPECT_NE(FailureOf(Bytes(message.begin(), message.begin() + length), ReadSample), noException)
            << length;
    }
    EXPECT_EQ(FailureOf(message, ReadSample), noException);

    std::mt19937 random(20240611);
    for (int round = 0; round < 3000; ++round)
    {
        Bytes corrupted = message;
        for (int flips = 1 + round % 3; flips > 0; --flips)
        {
            corrupted[random() % corrupted.size()] = static_cast<std::uint8_t>(random());
        }
        FailureOf(corrupted, ReadSample);  // some corruptions stay readable
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
    // Only the object type read just before stands in for a header's code.
    EXPECT_NE(FailureOf({18, 6, 0, 0, 0}, [](TulReader& r) { r.ReadFieldCount(), r.ReadFieldCount(); }),
              noException);
    EXPECT_NE(FailureOf({19, 6, 0, 0, 0}, [](TulReader& r) { r.ReadObjectType(), r.ReadFieldCount(); }),
              noException);
}

TEST(RemotingReaderHostileInputTest, LengthsMustFitTheRestOfTheMessageAndStringsTheirBuffer)
{
    EXPECT_EQ(FailureOf({0xFF, 0xFF, 0xFF, 0xFF, 1, 2}, [](TulReader& r) { r.ReadArrayLength(); }),
              "Malformed message at offset 0: expected an array length of at most 2, found 4294967295");
    EXPECT_NE(FailureOf({4, 0, 0, 0, 1, 2, 3}, [](TulReader& r) { r.ReadArrayLength(); }), noException);
    EXPECT_EQ(FailureOf({3, 0, 0, 0, 1, 2, 3}, [](TulReader& r) { EXPECT_EQ(r.ReadArrayLength(), 3u); }),
              noException);

    Bytes fitsMessageNotCapacity{19, 0x58, 0x02, 0, 0};  // 600 bytes
    fitsMessageNotCapacity.resize(5 + 600, 'a');
    const std::pair<Bytes, std::string> cases[] = {
        {fitsMessageNotCapacity,
         "Malformed message at offset 1: expected a string of at most 511 bytes, found a string of 600 "
         "bytes"},
        {{19, 10, 0, 0, 0, 'a', 'b', 'c'},
         "Malformed message at offset 5: expected string of 10 bytes, found the end of the message after 3 "
         "bytes"},
        {{19, 8, 0, 0},
         "Malformed message at offset 1: expected string length of 4 bytes, found the end of the message "
         "after 3 bytes"}};
    for (const auto& [bytes, message] : cases)
    {
        char buffer[512];
        std::memset(buffer, 'q', sizeof buffer);
        EXPECT_EQ(FailureOf(bytes, [&buffer](TulReader& r)
                            { r.ReadStringInternal(buffer, sizeof buffer, utf8, true); }),
                  message);
        EXPECT_EQ(buffer[0], '\0') << message;
    }
    // The capacity counts the NUL: 3 characters don't fit 3 bytes.
    char small[3];
    EXPECT_NE(FailureOf({3, 0, 0, 0, 'a', 'b', 'c'},
                        [&small](TulReader& r) { r.ReadStringInternal(small, 3, utf8, false); }),
              noException);
}
