#include "Nm/RecordingWriter.h"

#include <Nm/Notification.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using Kiv::DateTimeKind;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
using Kiv::System::Tul::TulArrayInformation;
using Kiv::System::Tul::TulGuid;
using Kiv::System::Tul::TulVersion;
using Variant = TulVariant<512>;
using Bytes = std::vector<std::uint8_t>;

static_assert(Notification::GetFieldCount() == 6);

namespace
{
const DateTime utcTime(638000000000000000, DateTimeKind::Utc);
const DateTime unspecifiedTime(638000000000000000, DateTimeKind::Unspecified);

// A value with a code that no constructor gives, as a reader would fill it.
template <class T>
Variant Raw(unsigned code, const T& value)
{
    Variant variant(static_cast<TulType>(code));
    std::memcpy(variant.GetData(), &value, sizeof(value));
    return variant;
}

Variant StructHeader(std::uint32_t fieldCount)
{
    Variant variant(TulType::Struct);
    variant.SetFieldCount(fieldCount);
    return variant;
}

Variant ArrayHeader(const TulArrayInformation& information)
{
    Variant variant(TulType::Array);
    variant.SetArrayInformation(information);
    return variant;
}

Variant String36(const char* text)
{
    Variant variant(TulType::String36);
    std::strcpy(static_cast<char*>(variant.GetData()), text);
    return variant;
}

Notification Make(const std::vector<Variant>& payload, DateTime timestamp = utcTime)
{
    return Notification(NotificationId(0x1122334455667788), NotificationNameId(0xA0B0C0D0), timestamp,
                        Severity::Critical, PayloadTypeId(0xBEEF), payload);
}

Bytes Write(const Notification& notification)
{
    RemotingWriter writer;
    writer.WriteBeginStruct(Notification::GetFieldCount());
    notification.Serialize(writer);
    return writer.GetBuffer();
}

// Reads from a heap copy of exactly `bytes`, so that the address sanitizer sees a read past the end.
Notification Read(const Bytes& bytes, bool wholeMessage = true)
{
    auto copy = std::make_unique<std::uint8_t[]>(bytes.size() + 1);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    RemotingReader reader(copy.get(), bytes.size());
    reader.ReadBeginStruct(Notification::GetFieldCount());
    Notification notification;
    notification.Deserialize(reader);
    if (wholeMessage)
    {
        EXPECT_TRUE(reader.IsAtEnd());
    }
    return notification;
}

template <class E, class F>
std::string MessageOf(F&& action)
{
    try
    {
        action();
    }
    catch (const E& e)
    {
        return e.GetMessage();
    }
    return "no exception of the expected type";
}

// The message of a notification whose only field is an Int32 whose object type is then replaced.
Bytes WithElementCode(unsigned code)
{
    Bytes bytes = Write(Make({Variant(std::int32_t{7})}));
    bytes[bytes.size() - 5] = static_cast<std::uint8_t>(code);
    return bytes;
}
// A message with every kind of element that can be read.
Bytes HostileSample()
{
    return Write(Make({Variant(TulType::Void), Variant(true), Variant(std::int16_t{-2}), Raw(41, 5),
                       Raw(44, std::int64_t{6}), Variant(2.0), StructHeader(1), Variant("text"),
                       String36("36"), ArrayHeader({28, 1, 0, 0}), Variant(utcTime)}));
}
}  // namespace

TEST(NotificationTest, ConstructionKeepsEveryFieldAndTheDefaultIsEmpty)
{
    const Notification empty;
    EXPECT_EQ(empty.GetId().GetValue(), 0u);
    EXPECT_EQ(empty.GetNotificationNameId().GetValue(), 0u);
    EXPECT_EQ(empty.GetTimestamp().GetRawValue(), 0u);
    EXPECT_EQ(empty.GetSeverity(), Severity::Internal);
    EXPECT_EQ(empty.GetPayloadTypeId().GetValue(), 0u);
    EXPECT_TRUE(empty.GetPayload().empty());

    const Notification full = Make({Variant("format {0}"), Variant(std::int16_t{-3})});
    EXPECT_EQ(full.GetId(), NotificationId(0x1122334455667788));
    EXPECT_EQ(full.GetNotificationNameId(), NotificationNameId(0xA0B0C0D0));
    EXPECT_EQ(full.GetTimestamp(), utcTime);
    EXPECT_EQ(full.GetSeverity(), Severity::Critical);
    EXPECT_EQ(full.GetPayloadTypeId(), PayloadTypeId(0xBEEF));
    ASSERT_EQ(full.GetPayload().size(), 2u);
    EXPECT_STREQ(full.GetPayload()[0].GetChars(), "format {0}");
    EXPECT_EQ(full.GetPayload()[1].ToString(), "-3");
}

TEST(NotificationTest, SerializeCallsTheWriterInTheFixedOrder)
{
    const Notification notification =
        Make({Variant(TulType::Void), Variant(true), Variant(std::int16_t{-2}), Raw(41, std::int32_t{-5}),
              Raw(46, std::int64_t{9}), Variant(1.5f), StructHeader(3), Variant("abc"), String36("def"),
              ArrayHeader({28, 1, 2, 0}), Variant(utcTime), Variant(TulVersion{1, 2, 3, 4}),
              Variant(TulGuid{{0xAB}})});
    RecordingWriter writer;
    notification.Serialize(writer);

    const std::vector<std::string> expected = {
        "Tag UInt64", "Data 8 0x1122334455667788", "Tag UInt32", "Data 4 0xa0b0c0d0", "Tag DateTime",
        "DateTime 0x48daa19ea6b30000", "Tag UInt8", "Data 1 0x4", "Tag UInt16", "Data 2 0xbeef", "Tag Array",
        "Tag Object", "ArrayLength 13",
        // the elements: an object type and a value, never a tag
        "ObjectType Void", "ObjectType Bool", "Data 1 0x1", "ObjectType Int16", "Data 2 0xfffe",
        "ObjectType Alias32", "Data 4 0xfffffffb", "ObjectType 46", "Data 8 0x9", "ObjectType Real32",
        "Data 4 0x3fc00000", "BeginStruct 3", "ObjectString 'abc' 2", "ObjectType String36",
        "StringInternal 'def' 512 2 false", "ArrayInformation 28 1 2 0", "ObjectType DateTime",
        "DateTime 0x48daa19ea6b30000", "ObjectType Version", "Data 2 0x1", "Data 2 0x2", "Data 2 0x3",
        "Data 2 0x4", "ObjectType Guid", "Data 16 0xab"};
    EXPECT_EQ(writer.calls, expected);
    EXPECT_EQ(notification.GetPayload()[6].GetWriter(), &writer);
    EXPECT_EQ(notification.GetPayload()[9].GetWriter(), &writer);
}

TEST(NotificationTest, EveryReadableCodeRoundTripsAndAliasesComeBackPlain)
{
    const std::string longest(511, 'z');
    const std::vector<Variant> sent = {Variant(TulType::Void),
                                       Variant(false),
                                       Variant(std::int8_t{-8}),
                                       Variant(std::uint8_t{200}),
                                       Variant(std::int16_t{-300}),
                                       Variant(std::uint16_t{60000}),
                                       Variant(std::int32_t{-70000}),
                                       Variant(std::uint32_t{4000000000u}),
                                       Variant(std::int64_t{-5000000000}),
                                       Variant(std::uint64_t{18000000000000000000u}),
                                       Variant(0.25f),
                                       Variant(-2.5),
                                       Variant(longest.c_str()),
                                       String36("thirty-six"),
                                       Variant(DateTime(5, DateTimeKind::Local)),
                                       Raw(41, std::int32_t{-41}),
                                       Raw(42, std::int64_t{-42}),
                                       Raw(44, std::int64_t{44}),
                                       Raw(46, std::int64_t{46}),
                                       Raw(48, std::int64_t{48}),
                                       Variant("")};
    const Notification received = Read(Write(Make(sent)));

    EXPECT_EQ(received.GetId(), NotificationId(0x1122334455667788));
    EXPECT_EQ(received.GetNotificationNameId(), NotificationNameId(0xA0B0C0D0));
    EXPECT_EQ(received.GetTimestamp(), utcTime);
    EXPECT_EQ(received.GetSeverity(), Severity::Critical);
    EXPECT_EQ(received.GetPayloadTypeId(), PayloadTypeId(0xBEEF));
    ASSERT_EQ(received.GetPayload().size(), sent.size());
    for (std::size_t i = 0; i < sent.size(); ++i)
    {
        const auto code = static_cast<unsigned>(sent[i].GetType());
        const TulType expected = code == 41                 ? TulType::Int32
                                 : code >= 42 && code <= 48 ? TulType::Int64
                                                            : sent[i].GetType();
        EXPECT_EQ(received.GetPayload()[i].GetType(), expected) << i;
        EXPECT_EQ(received.GetPayload()[i].ToString(), sent[i].ToString()) << i;
    }
    EXPECT_EQ(received.GetPayload()[12].GetChars(), longest);
}

TEST(NotificationTest, EmptyPayloadIsTheArrayHeaderAlone)
{
    RecordingWriter writer;
    Make({}).Serialize(writer);
    ASSERT_EQ(writer.calls.size(), 13u);
    EXPECT_EQ(writer.calls[12], "ArrayLength 0");
    EXPECT_TRUE(Read(Write(Make({}))).GetPayload().empty());
}

TEST(NotificationTest, StructAndArrayHeadersLeaveWhatFollowsToFurtherElements)
{
    const Bytes bytes = Write(Make({StructHeader(2), Variant(std::uint32_t{9}), Variant("x"),
                                    ArrayHeader({8, 1, 1, 0}), Variant(std::int32_t{-1})}));
    RemotingReader reader(bytes.data(), bytes.size());
    reader.ReadBeginStruct(6);
    Notification received;
    received.Deserialize(reader);

    const auto& payload = received.GetPayload();
    ASSERT_EQ(payload.size(), 5u);
    EXPECT_EQ(payload[0].GetFieldCount(), 2u);
    EXPECT_EQ(payload[0].GetReader(), &reader);
    EXPECT_EQ(payload[0].GetWriter(), nullptr);
    EXPECT_EQ(payload[1].ToString(), "9");
    EXPECT_STREQ(payload[2].GetChars(), "x");
    EXPECT_EQ(payload[3].GetArrayInformation(), (TulArrayInformation{8, 1, 1, 0}));
    EXPECT_EQ(payload[3].GetReader(), &reader);
    EXPECT_EQ(payload[4].ToString(), "-1");
}

TEST(NotificationTest, DeserializeAppendsToThePayloadHeld)
{
    const Bytes bytes = Write(Make({Variant(std::uint8_t{1}), Variant(std::uint8_t{2})}));
    RemotingReader reader(bytes.data(), bytes.size());
    reader.ReadBeginStruct(6);
    Notification notification = Make({Variant("kept")});
    notification.Deserialize(reader);
    ASSERT_EQ(notification.GetPayload().size(), 3u);
    EXPECT_STREQ(notification.GetPayload()[0].GetChars(), "kept");
    EXPECT_EQ(notification.GetPayload()[2].ToString(), "2");
}

TEST(NotificationTest, UnspecifiedTimeIsRefusedInBothDirections)
{
    const std::string text = "DateTimeKind Unspecified not supported.";
    RecordingWriter writer;
    EXPECT_EQ(MessageOf<Kiv::NotSupportedException>([&] { Make({}, unspecifiedTime).Serialize(writer); }),
              text);
    // Only the two ids went out.
    EXPECT_EQ(writer.calls.size(), 4u);
    EXPECT_EQ(MessageOf<Kiv::NotSupportedException>([] { Write(Make({Variant(unspecifiedTime)})); }), text);

    // From the wire: the same record written with its kind bits cleared afterwards.
    Bytes bytes = Write(Make({}));
    bytes[27] &= 0x3F;  // top byte of the timestamp behind struct header, two ids and the DateTime tag
    EXPECT_EQ(MessageOf<Kiv::NotSupportedException>([&] { Read(bytes); }), text);
    bytes = Write(Make({Variant(utcTime)}));
    bytes.back() &= 0x3F;
    EXPECT_EQ(MessageOf<Kiv::NotSupportedException>([&] { Read(bytes); }), text);
}

TEST(NotificationTest, CodesWithoutWireFormAreRefusedWithTheirName)
{
    const std::pair<unsigned, const char*> unwritable[] = {{0, "None"},    {3, "Char"},   {26, "String26"},
                                                           {28, "Object"}, {43, "43"},    {45, "45"},
                                                           {47, "47"},     {255, "Unset"}};
    for (const auto& [code, name] : unwritable)
    {
        EXPECT_EQ(MessageOf<Kiv::NotSupportedException>([&] { Write(Make({Raw(code, 0)})); }),
                  fmt::format("DataType '{}' not supported by TulVariant.", name));
    }
    const std::pair<unsigned, const char*> unreadable[] = {{0, "None"},    {3, "Char"}, {26, "String26"},
                                                           {28, "Object"}, {43, "43"},  {255, "Unset"}};
    for (const auto& [code, name] : unreadable)
    {
        EXPECT_EQ(MessageOf<Kiv::NotSupportedException>([&] { Read(WithElementCode(code)); }),
                  fmt::format("TulType {} not supported.", name));
    }
    for (const Variant& value : {Variant(TulVersion{1, 2, 3, 4}), Variant(TulGuid{})})
    {
        const Bytes bytes = Write(Make({value}));
        EXPECT_EQ(MessageOf<Kiv::NotImplementedException>([&] { Read(bytes, false); }),
                  "Type TulVersion and TulGuid are currently not supported by TulVariant");
    }
}

TEST(NotificationTest, StringWithoutTerminatorIsRefusedNotOverrun)
{
    Variant unterminated(TulType::String);
    std::memset(unterminated.GetData(), 'x', Variant::MaxStringSize);
    EXPECT_EQ(MessageOf<Kiv::ArgumentException>([&] { Write(Make({unterminated})); }),
              "Cannot write string: TulVariant text is not terminated within MaxStringSize 512");
}

TEST(NotificationHostileInputTest, EveryTruncationRaisesCommunicationException)
{
    const Bytes message = HostileSample();
    for (std::size_t length = 0; length < message.size(); ++length)
    {
        EXPECT_THROW(Read(Bytes(message.begin(), message.begin() + length)), Kiv::CommunicationException)
            << length;
    }
}

TEST(NotificationHostileInputTest, CorruptedBytesRaisePlatformExceptionsOnly)
{
    const Bytes message = HostileSample();
    const auto readCorrupted = [](const Bytes& bytes)
    {
        try
        {
            Read(bytes, false);
            return true;
        }
        catch (const Kiv::Exception&)
        {
            return false;
        }
        catch (const std::exception& e)
        {
            ADD_FAILURE() << "not a platform exception: " << e.what();
            return false;
        }
    };
    // Every byte with every value: only a platform exception may leave, and nothing may crash.
    for (std::size_t offset = 0; offset < message.size(); ++offset)
    {
        for (unsigned value = 0; value < 256; ++value)
        {
            Bytes bytes = message;
            bytes[offset] = static_cast<std::uint8_t>(value);
            readCorrupted(bytes);
        }
    }
    // The tags of the fixed fields and of the payload array, and the array length's top byte.
    for (const std::size_t offset : {0u, 5u, 14u, 19u, 28u, 30u, 33u, 34u, 38u})
    {
        Bytes bytes = message;
        bytes[offset] ^= 0x40;
        EXPECT_FALSE(readCorrupted(bytes)) << offset;
    }
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round)
    {
        Bytes bytes = message;
        for (int i = 0; i < 4; ++i)
        {
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        }
        readCorrupted(bytes);
    }
}
