#include "Platform/Tul/RemotingSample.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

using namespace Kiv::System::Tul;
using Bytes = std::vector<std::uint8_t>;

TEST(RemotingTest, EveryWriteReadsBackWithItsValue)
{
    RemotingWriter original;
    Sample::Write(original);
    RemotingReader reader(original.GetData(), original.GetSize());
    RemotingWriter copy;
    Sample::Copy(reader, copy);
    EXPECT_EQ(copy.GetBuffer(), original.GetBuffer());
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

// The sample reads element headers after their object type; here the other way.
TEST(RemotingTest, StructAndArrayHeadersReadAlsoWithoutObjectTypeRead)
{
    RemotingWriter writer;
    const TulArrayInformation information{9, 1, 4, 0};
    writer.WriteBeginStruct(3);
    writer.WriteArrayInformation(information);
    writer.WriteBeginStruct(6);

    RemotingReader reader(writer.GetData(), writer.GetSize());
    EXPECT_EQ(reader.ReadFieldCount(), 3u);
    EXPECT_EQ(reader.ReadArrayInformation(), information);
    EXPECT_EQ(reader.ReadObjectType(), TulType::Struct);
    reader.ReadBeginStruct(6);
    EXPECT_TRUE(reader.IsAtEnd());
}

TEST(RemotingTest, WriterRefusesStringsBeyondCapacityWithoutWriting)
{
    RemotingWriter writer;
    const std::string tooLong(512, 'y');
    EXPECT_THROW(writer.WriteStringInternal(tooLong.c_str(), 512, Sample::utf8, true),
                 Kiv::ArgumentException);
    // A full buffer without NUL is refused without reading past it.
    const auto unterminated = std::make_unique<char[]>(8);
    std::memset(unterminated.get(), 'z', 8);
    EXPECT_THROW(writer.WriteStringInternal(unterminated.get(), 8, Sample::utf8, false),
                 Kiv::ArgumentException);
    EXPECT_EQ(writer.GetSize(), 0u);
}

TEST(RemotingTest, ResetEmptiesTheWriterAndKeepsItsMemory)
{
    RemotingWriter writer(16);
    Sample::Write(writer);
    const Bytes first = writer.GetBuffer();
    const std::size_t capacity = writer.GetBuffer().capacity();

    writer.Reset();
    EXPECT_EQ(writer.GetSize(), 0u);
    EXPECT_EQ(writer.GetBuffer().capacity(), capacity);
    Sample::Write(writer);
    EXPECT_EQ(writer.GetBuffer(), first);
}
