#include "Nm/RecordTestSupport.h"

#include <Nm/Notification.h>
#include <Nm/NotificationRegistrationInfo.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

using namespace Kiv::System::Nm;
using Kiv::String;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
using Status = NotificationRegistrationStatus;
using Bytes = std::vector<std::uint8_t>;

static_assert(NotificationRegistrationInfo::GetFieldCount() == 6);
static_assert(NotificationRegistrationInfo::GetFieldCount() == Notification::GetFieldCount());

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

TEST(NotificationRegistrationInfoTest, ANameOnlyASubscriberKnowsIsSubscribedWithoutSender)
{
    NotificationRegistrationInfo info(NotificationNameId(7), String("A.B.C"));
    EXPECT_EQ(info.GetNotificationNameId(), NotificationNameId(7));
    EXPECT_EQ(info.GetNotificationName(), "A.B.C");
    EXPECT_EQ(info.GetSenderName(), "");
    EXPECT_TRUE(info.IsSubscribed());
    EXPECT_FALSE(info.IsRegistered());
    EXPECT_FALSE(info.IsUnRegistered());

    RecordingWriter writer;
    info.Serialize(writer);
    const std::vector<std::string> expected = {"Tag UInt32",        "Data 4 0x7", "ObjectString 'A.B.C' 2",
                                               "ObjectString '' 2", "Tag UInt8",  "Data 1 0x0",
                                               "Tag UInt16",        "Data 2 0x0", "Tag UInt8",
                                               "Data 1 0x0"};
    EXPECT_EQ(writer.calls, expected);

    info.SetStatusRegistered();
    EXPECT_TRUE(info.IsRegistered());
    EXPECT_FALSE(info.IsSubscribed());
    info.SetStatusUnregistered();
    EXPECT_TRUE(info.IsUnRegistered());
    EXPECT_FALSE(info.IsRegistered());
    EXPECT_EQ(info.GetStatus(), Status::Unregistered);

    const NotificationRegistrationInfo empty;
    EXPECT_EQ(empty.GetNotificationNameId(), NotificationNameId(0));
    EXPECT_EQ(empty.GetNotificationName(), "");
    EXPECT_EQ(empty.GetSenderName(), "");
    EXPECT_TRUE(empty.IsSubscribed());
}

TEST(NotificationRegistrationInfoTest, AllSixFieldsRoundTrip)
{
    const std::string longest(511, 'n');
    const NotificationRegistrationInfo sent(NotificationNameId(0xDEADBEEF), String(longest), String("sender"),
                                            Severity::Emerge, PayloadTypeId(0xFFFE), Status::Registered);
    const NotificationRegistrationInfo received = Read(Write(sent));
    EXPECT_EQ(received.GetNotificationNameId(), NotificationNameId(0xDEADBEEF));
    EXPECT_EQ(received.GetNotificationName(), longest);
    EXPECT_EQ(received.GetSenderName(), "sender");
    EXPECT_EQ(received.GetSeverity(), Severity::Emerge);
    EXPECT_EQ(received.GetPayloadTypeId(), PayloadTypeId(0xFFFE));
    EXPECT_EQ(received.GetStatus(), Status::Registered);

    const NotificationRegistrationInfo unregistered(NotificationNameId(1), String("N"), String(""),
                                                    Severity::Info, PayloadTypeId(1), Status::Unregistered);
    EXPECT_TRUE(Read(Write(unregistered)).IsUnRegistered());
}

TEST(NotificationRegistrationInfoTest, NamesOf512CharactersAreRefusedNameFirst)
{
    const auto failureOf = [](std::size_t nameLength, std::size_t senderLength)
    {
        return MessageOf<Kiv::ArgumentException>(
            [&]
            {
                NotificationRegistrationInfo(NotificationNameId(1), String(nameLength, 'a'),
                                             String(senderLength, 'b'), Severity::Info, PayloadTypeId(1),
                                             Status::Registered);
            });
    };
    EXPECT_EQ(failureOf(512, 1), "Cannot copy string: argument string length 512 exceeds MaxStringSize 512");
    EXPECT_EQ(failureOf(1, 512), "Cannot copy string: argument string length 512 exceeds MaxStringSize 512");
    EXPECT_EQ(failureOf(600, 700),
              "Cannot copy string: argument string length 600 exceeds MaxStringSize 512");
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
    EXPECT_EQ(MessageOf<Kiv::InvalidCastException>([&] { numbers.GetNotificationName(); }),
              "Cannot convert to string: TulVariant is of type Int32");
    EXPECT_EQ(MessageOf<Kiv::InvalidCastException>([&] { numbers.GetSenderName(); }),
              "Cannot convert to string: TulVariant is of type Int32");

    const NotificationRegistrationInfo string36 = Read(WithNames(
        [](RemotingWriter& writer)
        {
            writer.WriteObjectType(TulType::String36);
            writer.WriteStringInternal("A.B", 512, Kiv::System::Tul::TulStringEncoding::Utf8, false);
            writer.WriteObjectString("S", Kiv::System::Tul::TulStringEncoding::Utf8);
        }));
    EXPECT_EQ(string36.GetNotificationName(), "A.B");
    EXPECT_EQ(string36.GetSenderName(), "S");

    const Bytes unreadable =
        WithNames([&](RemotingWriter& writer) { writer.WriteObjectType(static_cast<TulType>(26)); });
    EXPECT_EQ(MessageOf<Kiv::NotSupportedException>([&] { Read(unreadable); }),
              "TulType String26 not supported.");
}
