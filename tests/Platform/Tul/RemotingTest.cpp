#include "Platform/Tul/RemotingSample.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

using namespace Kiv::System::Tul;
using Bytes = std::vector<std::uint8_t>;

TEST(RemotingTest, EveryWriteReadsBackWithItsValue)
{
    RemotingWriter writer;
    const Sample::Values written = Sample::Expected();
    Sample::Write(writer, written);

    RemotingReader reader(writer.GetData(), writer.GetSize());
    EXPECT_TRUE(Sample::Read(reader) == written);
    EXPECT_TRUE(reader.IsAtEnd());
}

TEST(RemotingTest, ByteFormIsFixed)
{
    RemotingWriter writer;
    const std::uint32_t number = 0x04030201;
    writer.WriteTag(TulType::UInt32);
    writer.WriteDataInternal(&number, 4);
    writer.WriteStringInternal("ab", 512, TulStringEncoding::Utf8, true);
    writer.WriteStringInternal("c", 2, TulStringEncoding::Utf8, false);
    writer.WriteObjectString("d", TulStringEncoding::Utf8);
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
}

TEST(RemotingTest, StructAndArrayHeadersReadBothWays)
{
    RemotingWriter writer;
    const TulArrayInformation first{9, 1, 4, 0};
    const TulArrayInformation second{28, 2, 6, 1};
    for (int i = 0; i < 2; ++i)
    {
        writer.WriteBeginStruct(6);
        writer.WriteArrayInformation(first);
        writer.WriteBeginStruct(3);
        writer.WriteArrayInformation(second);
    }

    RemotingReader reader(writer.GetData(), writer.GetSize());
    reader.ReadBeginStruct(6);
    EXPECT_EQ(reader.ReadArrayInformation(), first);
    EXPECT_EQ(reader.ReadFieldCount(), 3u);
    EXPECT_EQ(reader.ReadArrayInformation(), second);

    EXPECT_EQ(reader.ReadObjectType(), TulType::Struct);
    reader.ReadBeginStruct(6);
    EXPECT_EQ(reader.ReadObjectType(), TulType::Array);
    EXPECT_EQ(reader.ReadArrayInformation(), first);
    EXPECT_EQ(reader.ReadObjectType(), TulType::Struct);
    EXPECT_EQ(reader.ReadFieldCount(), 3u);
    EXPECT_EQ(reader.ReadObjectType(), TulType::Array);
    EXPECT_EQ(reader.ReadArrayInformation(), second);
    EXPECT_TRUE(reader.IsAtEnd());
}

TEST(RemotingTest, StringsUpToCapacityLessOneRoundTripAndLongerOnesAreRefused)
{
    const std::string longest(511, 'x');
    RemotingWriter writer;
    writer.WriteStringInternal(longest.c_str(), 512, TulStringEncoding::Utf8, true);
    writer.WriteStringInternal("", 512, TulStringEncoding::Utf8, false);
    const std::size_t size = writer.GetSize();

    const std::string tooLong(512, 'y');
    EXPECT_THROW(writer.WriteStringInternal(tooLong.c_str(), 512, TulStringEncoding::Utf8, true),
                 Kiv::ArgumentException);
    // A full buffer without NUL is refused without reading past it.
    const std::vector<char> unterminated(8, 'z');
    EXPECT_THROW(writer.WriteStringInternal(unterminated.data(), 8, TulStringEncoding::Utf8, true),
                 Kiv::ArgumentException);
    EXPECT_EQ(writer.GetSize(), size);

    RemotingReader reader(writer.GetData(), writer.GetSize());
    char buffer[512];
    reader.ReadStringInternal(buffer, sizeof buffer, TulStringEncoding::Utf8, true);
    EXPECT_EQ(std::string(buffer), longest);
    buffer[0] = 'q';
    reader.ReadStringInternal(buffer, sizeof buffer, TulStringEncoding::Utf8, false);
    EXPECT_EQ(std::string(buffer), "");
}

TEST(RemotingTest, ResetEmptiesTheWriterAndKeepsItsMemory)
{
    RemotingWriter writer(16);
    Sample::Write(writer, Sample::Expected());
    const std::size_t capacity = writer.GetBuffer().capacity();
    const Bytes first = writer.GetBuffer();

    writer.Reset();
    EXPECT_EQ(writer.GetSize(), 0u);
    EXPECT_EQ(writer.GetBuffer().capacity(), capacity);
    Sample::Write(writer, Sample::Expected());
    EXPECT_EQ(writer.GetBuffer(), first);
}
