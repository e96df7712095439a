#include <Nm/Notification.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <fmt/format.h>

#include <Nm/RecordingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using Kiv::DateTimeKind;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
using Kiv::System::Tul::TulArrayInformation;
using ::testing::ThrowsMessage;
using Variant = TulVariant<512>;
using Bytes = std::vector<std::uint8_t>;

// Ids of one kind don't mix with those of another or with raw numbers unless asked to.
static_assert(!std::is_convertible_v<PayloadTypeId, NotificationDispatcherId>);
static_assert(!std::is_convertible_v<std::uint32_t, NotificationNameId>);
static_assert(!std::is_convertible_v<NotificationNameId, std::uint32_t>);

using Kiv::Testing::RecordingWriter;

namespace
{
const DateTime utcTime(638000000000000000, DateTimeKind::Utc);

// Any code with the bytes of `value`, as a reader fills it; Struct and Array headers, String36, aliases.
template <class T>
Variant Raw(unsigned code, const T& value)
{
    Variant variant(static_cast<TulType>(code));
    std::memcpy(variant.GetData(), &value, sizeof(value));
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
Notification Read(const Bytes& bytes)
{
    auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    RemotingReader reader(copy.get(), bytes.size());
    reader.ReadBeginStruct(Notification::GetFieldCount());
    Notification notification;
    notification.Deserialize(reader);
    EXPECT_TRUE(reader.IsAtEnd());
    return notification;
}

// A message with every kind of element that can be read.
const Bytes hostileSample =
    Write(Make({Variant(TulType::Void), Variant(true), Variant(std::int16_t{-2}), Raw(41, 5),
                Raw(44, std::int64_t{6}), Variant(2.0), Raw(18, 1u), Variant("text"), Raw(36, "36"),
                Raw(20, TulArrayInformation{28, 1, 0, 0}), Variant(utcTime)}));
}  // namespace

TEST(NotificationTest, SerializeCallsTheWriterInTheFixedOrder)
{
    const Notification notification =
        Make({Variant(TulType::Void), Variant(true), Raw(41, -5), Raw(18, 3u), Variant("abc"), Raw(36, "def"),
              Raw(20, TulArrayInformation{28, 1, 2, 0}), Variant(utcTime),
              Variant(Kiv::System::Tul::TulGuid{{0xAB}})});
    RecordingWriter writer;
    notification.Serialize(writer);
    const std::vector<std::string> expected = {
        "Tag UInt64", "Data 8 0x1122334455667788", "Tag UInt32", "Data 4 0xa0b0c0d0", "Tag DateTime",
        "DateTime 0x48daa19ea6b30000", "Tag UInt8", "Data 1 0x4", "Tag UInt16", "Data 2 0xbeef", "Tag Array",
        "Tag Object", "ArrayLength 9",
        // the elements: an object type and a value, never a tag
        "ObjectType Void", "ObjectType Bool", "Data 1 0x1", "ObjectType Alias32", "Data 4 0xfffffffb",
        "BeginStruct 3", "ObjectString 'abc' 2", "ObjectType String36", "StringInternal 'def' 512 2 false",
        "ArrayInformation 28 1 2 0", "ObjectType DateTime", "DateTime 0x48daa19ea6b30000", "ObjectType Guid",
        "Data 16 0xab"};
    EXPECT_EQ(writer.calls, expected);
    EXPECT_EQ(notification.GetPayload()[6].GetWriter(), &writer) << "kept in an Array header";
}

TEST(NotificationTest, EveryReadableCodeRoundTripsAndAliasesComeBackPlain)
{
    const std::string longest(511, 'z');
    std::vector<Variant> sent(
        {Variant(TulType::Void), Variant(false), Variant(std::int8_t{-8}), Variant(std::uint8_t{200}),
         Variant(std::int16_t{-300}), Variant(std::uint16_t{60000}), Variant(std::int32_t{-70000}),
         Variant(std::uint32_t{4000000000u}), Variant(std::int64_t{-5000000000}),
         Variant(std::uint64_t{18000000000000000000u}),
         // One list: GCC 12 for 32-bit ARM sees a false out-of-bounds in insert().
         Variant(0.25f), Variant(-2.5), Variant(longest.c_str()), Raw(36, "thirty-six"),
         Variant(DateTime(5, DateTimeKind::Local)), Variant(""), Raw(41, -41), Raw(42, std::int64_t{-42}),
         Raw(44, std::int64_t{44}), Raw(46, std::int64_t{46}), Raw(48, std::int64_t{48})});
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
        const TulType expected = code == 41   ? TulType::Int32
                                 : code >= 42 ? TulType::Int64
                                              : sent[i].GetType();
        EXPECT_EQ(received.GetPayload()[i].GetType(), expected) << i;
        EXPECT_EQ(received.GetPayload()[i].ToString(), sent[i].ToString()) << i;
    }
}

TEST(NotificationTest, ValuesWithoutWireFormAreRefusedWithTheirName)
{
    const std::string text = "DateTimeKind Unspecified not supported.";
    const DateTime unspecified(638000000000000000, DateTimeKind::Unspecified);
    EXPECT_THAT([&] { Write(Make({}, unspecified)); }, ThrowsMessage<Kiv::NotSupportedException>(text));
    EXPECT_THAT([&] { Write(Make({Variant(unspecified)})); },
                ThrowsMessage<Kiv::NotSupportedException>(text));

    // From the wire: a record written with the kind bits cleared afterwards.
    Bytes bytes = Write(Make({}));
    bytes[27] &= 0x3F;  // top byte of the timestamp, behind the struct header, two ids and the DateTime tag
    EXPECT_THAT([&] { Read(bytes); }, ThrowsMessage<Kiv::NotSupportedException>(text));
    EXPECT_THAT([] { Write(Make({Variant(TulType::Unset)})); },
                ThrowsMessage<Kiv::NotSupportedException>("DataType 'Unset' not supported by TulVariant."));
    const std::pair<unsigned, std::string> codes[] = {
        {0, "None"}, {26, "String26"}, {43, "43"}, {255, "Unset"}};
    for (const auto& [code, name] : codes)
    {
        // As the object type of an Int32 element on the wire.
        Bytes bytes = Write(Make({Variant(std::int32_t{7})}));
        bytes[bytes.size() - 5] = static_cast<std::uint8_t>(code);
        EXPECT_THAT([&] { Read(bytes); },
                    ThrowsMessage<Kiv::NotSupportedException>("TulType " + name + " not supported."));
    }
    for (const Variant& value :
         {Variant(Kiv::System::Tul::TulVersion{1, 2, 3, 4}), Variant(Kiv::System::Tul::TulGuid{})})
    {
        EXPECT_THAT([&] { Read(Write(Make({value}))); },
                    ThrowsMessage<Kiv::NotImplementedException>(
                        "Type TulVersion and TulGuid are currently not supported by TulVariant"));
    }
    Variant unterminated(TulType::String);
    std::memset(unterminated.GetData(), 'x', Variant::MaxStringSize);
    EXPECT_THAT([&] { Write(Make({unterminated})); },
                ThrowsMessage<Kiv::ArgumentException>(
                    "Cannot write string: TulVariant text is not terminated within MaxStringSize 512"));
}

TEST(NotificationHostileInputTest, TruncatedOrCorruptedBytesRaisePlatformExceptionsOnly)
{
    // Struct and Array headers leave what follows them to further elements.
    EXPECT_EQ(Read(hostileSample).GetPayload().size(), 11u);
    for (std::size_t length = 0; length < hostileSample.size(); ++length)
    {
        EXPECT_THROW(Read(Bytes(hostileSample.begin(), hostileSample.begin() + length)),
                     Kiv::CommunicationException)
            << length;
    }
    // True if the record was read; a failure other than a platform exception fails the test.
    const auto isRead = [](const Bytes& bytes)
    {
        try
        {
            RemotingReader reader(bytes.data(), bytes.size());
            reader.ReadBeginStruct(6);
            Notification().Deserialize(reader);
            return true;
        }
        catch (const Kiv::Exception&)
        {
            return false;
        }
    };
    for (std::size_t offset = 0; offset < hostileSample.size(); ++offset)
    {
        for (unsigned value = 0; value < 256; ++value)
        {
            Bytes bytes = hostileSample;
            bytes[offset] = static_cast<std::uint8_t>(value);
            isRead(bytes);
        }
    }
    // The tags of the fixed fields and of the payload array, and the array length's top byte.
    for (const std::size_t offset : {0u, 5u, 14u, 19u, 28u, 30u, 33u, 34u, 38u})
    {
        Bytes bytes = hostileSample;
        bytes[offset] ^= 0x40;
        EXPECT_FALSE(isRead(bytes)) << offset;
    }
}

TEST(NotificationTest, TheWireBytesAreThoseWrittenOnX8664OnEveryMachine)
{
    // Written by the x86-64 build; a 32-bit build must write and read the very same bytes, 64-bit values,
    // the time stamp and array lengths included.
    const Notification notification =
        Make({Variant(std::int64_t{-2}), Variant(std::uint64_t{0x0102030405060708}),
              Variant(std::uint16_t{0xCAFE}), Variant(1.5), Variant(-0.25f), Raw(41, -5),
              Raw(46, std::int64_t{-6}), Variant("text"), Variant(utcTime),
              Raw(20, TulArrayInformation{28, 1, 2, 0})});
    // clang-format off
    const Bytes expected = {
        18, 6, 0, 0, 0,                                   // the struct of six fields
        11, 136, 119, 102, 85, 68, 51, 34, 17,            // id
        9, 208, 192, 176, 160,                            // name id
        23, 0, 0, 179, 166, 158, 161, 218, 72,            // time stamp
        5, 4,                                             // severity
        7, 239, 190,                                      // payload type id
        20, 28, 10, 0, 0, 0,                              // the payload, ten elements
        10, 254, 255, 255, 255, 255, 255, 255, 255,
        11, 8, 7, 6, 5, 4, 3, 2, 1,
        7, 254, 202,
        13, 0, 0, 0, 0, 0, 0, 248, 63,
        12, 0, 0, 128, 190,
        41, 251, 255, 255, 255,
        46, 250, 255, 255, 255, 255, 255, 255, 255,
        19, 4, 0, 0, 0, 't', 'e', 'x', 't',
        23, 0, 0, 179, 166, 158, 161, 218, 72,
        20, 28, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0
    };
    // clang-format on
    EXPECT_EQ(Write(notification), expected);
    const Notification read = Read(expected);
    EXPECT_EQ(read.GetId(), notification.GetId());
    EXPECT_EQ(read.GetTimestamp(), utcTime);
    ASSERT_EQ(read.GetPayload().size(), notification.GetPayload().size());
    for (std::size_t i = 0; i + 1 < read.GetPayload().size(); ++i)
    {
        EXPECT_EQ(read.GetPayload()[i].ToString(), notification.GetPayload()[i].ToString()) << i;
    }
}
