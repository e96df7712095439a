#include "Nm/RecordTestSupport.h"

#include <Nm/NotificationRegistrationInfo.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

using namespace Kiv::System::Nm;
using Kiv::String;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
using ::testing::ThrowsMessage;
using Status = NotificationRegistrationStatus;
using Bytes = std::vector<std::uint8_t>;

namespace
{
Bytes Write(const NotificationRegistrationInfo& info)
{
    RemotingWriter writer;
    writer.WriteBeginStruct(NotificationRegistrationInfo::GetFieldCount());
    info.Serialize(writer);
    return writer.GetBuffer();
}

NotificationRegistrationInfo Read(const Bytes& bytes)
{
    RemotingReader reader(bytes.data(), bytes.size());
    reader.ReadBeginStruct(NotificationRegistrationInfo::GetFieldCount());
    NotificationRegistrationInfo info;
    info.Deserialize(reader);
    EXPECT_TRUE(reader.IsAtEnd());
    return info;
}

// A record of id 3 whose two names are the elements that `writeNames` writes.
Bytes WithNames(const std::function<void(RemotingWriter&)>& writeNames)
{
    // Struct header and id take 10 bytes, each empty name 5.
    const Bytes plain = Write(NotificationRegistrationInfo(NotificationNameId(3), String("")));
    RemotingWriter names;
    writeNames(names);
    Bytes bytes(plain.begin(), plain.begin() + 10);
    bytes.insert(bytes.end(), names.GetBuffer().begin(), names.GetBuffer().end());
    bytes.insert(bytes.end(), plain.begin() + 20, plain.end());
    return bytes;
}
}  // namespace

TEST(NotificationRegistrationInfoTest, ANameOnlyASubscriberKnowsIsWrittenWithoutSenderAsSubscribed)
{
    const NotificationRegistrationInfo info(NotificationNameId(7), String("A.B.C"));
    EXPECT_TRUE(info.IsSubscribed());
    RecordingWriter writer;
    info.Serialize(writer);
    const std::vector<std::string> expected = {"Tag UInt32",        "Data 4 0x7", "ObjectString 'A.B.C' 2",
                                               "ObjectString '' 2", "Tag UInt8",  "Data 1 0x0",
                                               "Tag UInt16",        "Data 2 0x0", "Tag UInt8",
                                               "Data 1 0x0"};
    EXPECT_EQ(writer.calls, expected);
}

TEST(NotificationRegistrationInfoTest, AllSixFieldsRoundTripAndLongNamesAreRefusedNameFirst)
{
    const std::string longest(511, 'n');
    const NotificationRegistrationInfo received = Read(
        Write(NotificationRegistrationInfo(NotificationNameId(0xDEADBEEF), String(longest), String("sender"),
                                           Severity::Emerge, PayloadTypeId(0xFFFE), Status::Unregistered)));
    EXPECT_EQ(received.GetNotificationNameId(), NotificationNameId(0xDEADBEEF));
    EXPECT_EQ(received.GetNotificationName(), longest);
    EXPECT_EQ(received.GetSenderName(), "sender");
    EXPECT_EQ(received.GetSeverity(), Severity::Emerge);
    EXPECT_EQ(received.GetPayloadTypeId(), PayloadTypeId(0xFFFE));
    EXPECT_EQ(received.GetStatus(), Status::Unregistered);

    const auto make = [](std::size_t name, std::size_t sender)
    {
        return NotificationRegistrationInfo(NotificationNameId(1), String(name, 'a'), String(sender, 'b'),
                                            Severity::Info, PayloadTypeId(1), Status::Registered);
    };
    const std::string tooLong = "Cannot copy string: argument string length 512 exceeds MaxStringSize 512";
    EXPECT_THAT([&] { make(512, 1); }, ThrowsMessage<Kiv::ArgumentException>(tooLong));
    EXPECT_THAT([&] { make(1, 512); }, ThrowsMessage<Kiv::ArgumentException>(tooLong));
    EXPECT_THAT([&] { make(600, 700); },
                ThrowsMessage<Kiv::ArgumentException>(
                    "Cannot copy string: argument string length 600 exceeds MaxStringSize 512"));
    EXPECT_THROW(NotificationRegistrationInfo(NotificationNameId(1), String(512, 'x')),
                 Kiv::ArgumentException);
}

TEST(NotificationRegistrationInfoTest, NamesAreKeptAsReadWhateverTheirCode)
{
    const std::int32_t number = 5;
    const NotificationRegistrationInfo numbers = Read(WithNames(
        [&](RemotingWriter& writer)
        {
            writer.WriteObjectType(TulType::Int32);
            writer.WriteDataInternal(&number, 4);
            writer.WriteObjectType(TulType::Alias32);
            writer.WriteDataInternal(&number, 4);
        }));
    EXPECT_EQ(numbers.GetNotificationNameId(), NotificationNameId(3));
    EXPECT_THAT(
        [&] { numbers.GetNotificationName(); },
        ThrowsMessage<Kiv::InvalidCastException>("Cannot convert to string: TulVariant is of type Int32"));
    EXPECT_THROW(numbers.GetSenderName(), Kiv::InvalidCastException);

    const NotificationRegistrationInfo string36 = Read(WithNames(
        [](RemotingWriter& writer)
        {
            writer.WriteObjectType(TulType::String36);
            writer.WriteStringInternal("A.B", 512, Kiv::System::Tul::TulStringEncoding::Utf8, false);
            writer.WriteObjectString("S", Kiv::System::Tul::TulStringEncoding::Utf8);
        }));
    EXPECT_EQ(string36.GetNotificationName(), "A.B");
    EXPECT_EQ(string36.GetSenderName(), "S");

    const Bytes unreadable = WithNames([&](RemotingWriter& writer) { writer.WriteObjectType(TulType(26)); });
    EXPECT_THAT([&] { Read(unreadable); },
                ThrowsMessage<Kiv::NotSupportedException>("TulType String26 not supported."));
}
