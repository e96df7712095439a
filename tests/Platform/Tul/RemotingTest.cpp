#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/TulGuid.h>
#include <Kiv/System/Tul/TulVersion.h>

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
    const std::uint64_t id = 0x1122334455667788;
    const std::int32_t number = -7;
    w.WriteBeginStruct(6);
    w.WriteTag(TulType::UInt64);
    w.WriteDataInternal(&id, 8);
    w.WriteTag(TulType::DateTime);
    w.WriteDateTime(Kiv::DateTime(638000000000000000, Kiv::DateTimeKind::Utc));
    w.WriteStringInternal(std::string(511, 'x').c_str(), 512, utf8, true);  // the longest that fits
    w.WriteTag(TulType::Array);
    w.WriteTag(TulType::Object);
    w.WriteArrayLength(5);
    w.WriteObjectType(TulType::Int32);
    w.WriteDataInternal(&number, 4);
    w.WriteObjectString("hello", utf8);
    w.WriteObjectType(TulType::String36);
    w.WriteStringInternal("", 512, utf8, false);
    w.WriteBeginStruct(2);
    w.WriteArrayInformation({28, 1, 3, 0});
    TulVersion{1, 2, 3, 4}.Write(w);
    TulGuid{{0xA0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xFF}}.Write(w);
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
    r.ReadBeginStruct(6);
    w.WriteBeginStruct(6);
    copyTag(TulType::UInt64);
    copyData(8);
    copyTag(TulType::DateTime);
    w.WriteDateTime(r.ReadDateTime());
    r.ReadStringInternal(text, sizeof text, utf8, true);
    w.WriteStringInternal(text, sizeof text, utf8, true);
    copyTag(TulType::Array);
    copyTag(TulType::Object);
    const std::uint32_t count = r.ReadArrayLength();
    w.WriteArrayLength(count);
    for (std::uint32_t i = 0; i < count; ++i)
    {
        const TulType type = r.ReadObjectType();
        if (type == TulType::Struct)
        {
            w.WriteBeginStruct(r.ReadFieldCount());
        }
        else if (type == TulType::Array)
        {
            w.WriteArrayInformation(r.ReadArrayInformation());
        }
        else if (w.WriteObjectType(type); type == TulType::String || type == TulType::String36)
        {
            r.ReadStringInternal(text, sizeof text, utf8, false);
            w.WriteStringInternal(text, sizeof text, utf8, false);
        }
        else
        {
            copyData(4);
        }
    }
    copyData(8);   // the version's four parts
    copyData(16);  // the guid
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

TEST(RemotingTest, EveryWriteReadsBackWithItsValue)
{
    const Bytes original = SampleMessage();
    RemotingReader reader(original.data(), original.size());
    RemotingWriter copy;
    CopySample(reader, copy);
    EXPECT_EQ(copy.GetBuffer(), original);
    EXPECT_TRUE(reader.IsAtEnd());
}

TEST(RemotingTest, ByteFormIsFixed)
{
    RemotingWriter writer;
    const std::uint32_t number = 0x04030201;
    writer.WriteTag(TulType::UInt32);
    writer.WriteDataInternal(&number, 4);
    writer.WriteStringInternal("ab", 512, utf8, true);
    writer.WriteStringInternal("c", 2, utf8, false);
    writer.WriteObjectString("d", utf8);
    writer.WriteBeginStruct(6);
    writer.WriteArrayInformation({28, 1, 2, 0});
    writer.WriteArrayLength(0x0100);
    writer.WriteDateTime(Kiv::DateTime::FromRawValue(0x4000000000000005));
    writer.WriteObjectType(static_cast<TulType>(44));
    writer.WriteConfirmation(false);
    writer.WriteConfirmation(true);
    TulVersion{1, 2, 3, 0x0405}.Write(writer);

    // clang-format off
    const Bytes expected = {
        9, 1, 2, 3, 4,
        19, 2, 0, 0, 0, 'a', 'b',
        1, 0, 0, 0, 'c',
        19, 1, 0, 0, 0, 'd',
        18, 6, 0, 0, 0,
        20, 28, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0,
        0, 1, 0, 0,
        5, 0, 0, 0, 0, 0, 0, 0x40,
        44,
        0, 1,
        1, 0, 2, 0, 3, 0, 5, 4};
    // clang-format on
    EXPECT_EQ(writer.GetBuffer(), expected);

    // The sample reads element headers after their object type; here, at offset 23, without it.
    RemotingReader reader(expected.data() + 23, 5 + 17);
    EXPECT_EQ(reader.ReadFieldCount(), 6u);
    EXPECT_EQ(reader.ReadArrayInformation(), (TulArrayInformation{28, 1, 2, 0}));
    EXPECT_TRUE(reader.IsAtEnd());
}

TEST(RemotingTest, WriterRefusesStringsBeyondCapacityWithoutWritingAndResetKeepsItsMemory)
{
    RemotingWriter writer(16);
    EXPECT_THROW(writer.WriteStringInternal(std::string(512, 'y').c_str(), 512, utf8, true),
                 Kiv::ArgumentException);
    // A full buffer without NUL is refused without reading past it.
    const auto unterminated = std::make_unique<char[]>(8);
    std::memset(unterminated.get(), 'z', 8);
    EXPECT_THROW(writer.WriteStringInternal(unterminated.get(), 8, utf8, false), Kiv::ArgumentException);
    EXPECT_EQ(writer.GetSize(), 0u);

    WriteSample(writer);
    const std::size_t capacity = writer.GetBuffer().capacity();
    writer.Reset();
    EXPECT_EQ(writer.GetSize(), 0u);
    EXPECT_EQ(writer.GetBuffer().capacity(), capacity);
    WriteSample(writer);
    EXPECT_EQ(writer.GetBuffer(), SampleMessage());
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
    Bytes structHeader{18, 1, 0, 0, 0};
    structHeader.resize(17);
    EXPECT_NE(FailureOf(structHeader, [](TulReader& r) { r.ReadArrayInformation(); }), noException);
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
    // The capacity counts the NUL: 3 characters fit 4 bytes, not 3.
    char small[4];
    const Bytes abc{3, 0, 0, 0, 'a', 'b', 'c'};
    EXPECT_NE(FailureOf(abc, [&small](TulReader& r) { r.ReadStringInternal(small, 3, utf8, false); }),
              noException);
    EXPECT_EQ(FailureOf(abc, [&small](TulReader& r) { r.ReadStringInternal(small, 4, utf8, false); }),
              noException);
    EXPECT_STREQ(small, "abc");
}
