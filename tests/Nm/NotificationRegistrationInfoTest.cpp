#include "Nm/RecordingWriter.h"

#include <Nm/Notification.h>
#include <Nm/NotificationRegistrationInfo.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

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

// A record written by hand, with the two names as the elements given.
template <class WriteNames>
Bytes WriteWithNames(WriteNames&& writeNames)
{
    const std::uint32_t id = 3;
    const std::uint8_t byte = 1;
    const std::uint16_t payloadTypeId = 2;
    RemotingWriter writer;
    writer.WriteBeginStruct(6);
    writer.WriteTag(TulType::UInt32);
    writer.WriteDataInternal(&id, 4);
    writeNames(writer);
    writer.WriteTag(TulType::UInt8);
    writer.WriteDataInternal(&byte, 1);
    writer.WriteTag(TulType::UInt16);
    writer.WriteDataInternal(&payloadTypeId, 2);
    writer.WriteTag(TulType::UInt8);
    writer.WriteDataInternal(&byte, 1);
    return writer.GetBuffer();
}
}  // namespace

TEST(NotificationRegistrationInfoTest, ANameOnlyASubscriberKnowsIsSubscribedWithoutSender)
{
    NotificationRegistrationInfo info(NotificationNameId(7), String("A.B.C"));
    EXPECT_EQ(info.GetNotificationNameId(), NotificationNameId(7));
    EXPECT_EQ(info.GetNotificationName(), "A.B.C");
    EXPECT_EQ(info.GetSenderName(), "");
    EXPECT_EQ(info.GetSeverity(), Severity::Internal);
    EXPECT_EQ(info.GetPayloadTypeId(), PayloadTypeId(0));
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
    const String tooLong(512, 'x');
    const char* text = "Cannot copy string: argument string length 512 exceeds MaxStringSize 512";
    EXPECT_EQ(MessageOf<Kiv::ArgumentException>(
                  [&] { NotificationRegistrationInfo(NotificationNameId(1), tooLong); }),
              text);
    EXPECT_EQ(MessageOf<Kiv::ArgumentException>(
                  [&]
                  {
                      NotificationRegistrationInfo(NotificationNameId(1), String("A"), tooLong,
                                                   Severity::Info, PayloadTypeId(1), Status::Registered);
                  }),
              text);
    EXPECT_EQ(MessageOf<Kiv::ArgumentException>(
                  [&]
                  {
                      NotificationRegistrationInfo(NotificationNameId(1), String(600, 'a'), String(700, 'b'),
                                                   Severity::Info, PayloadTypeId(1), Status::Registered);
                  }),
              "Cannot copy string: argument string length 600 exceeds MaxStringSize 512");
}

TEST(NotificationRegistrationInfoTest, NamesAreKeptAsReadWhateverTheirCode)
{
    const std::int32_t number = 5;
    const NotificationRegistrationInfo numbers = Read(WriteWithNames(
        [&](RemotingWriter& writer)
        {
            writer.WriteObjectType(TulType::Int32);
            writer.WriteDataInternal(&number, 4);
            writer.WriteObjectType(TulType::Alias32);
            writer.WriteDataInternal(&number, 4);
        }));
    EXPECT_EQ(numbers.GetSeverity(), Severity::Info);
    EXPECT_EQ(MessageOf<Kiv::InvalidCastException>([&] { numbers.GetNotificationName(); }),
              "Cannot convert to string: TulVariant is of type Int32");
    EXPECT_EQ(MessageOf<Kiv::InvalidCastException>([&] { numbers.GetSenderName(); }),
              "Cannot convert to string: TulVariant is of type Int32");

    const NotificationRegistrationInfo string36 = Read(WriteWithNames(
        [](RemotingWriter& writer)
        {
            writer.WriteObjectType(TulType::String36);
            writer.WriteStringInternal("A.B", 512, Kiv::System::Tul::TulStringEncoding::Utf8, false);
            writer.WriteObjectString("S", Kiv::System::Tul::TulStringEncoding::Utf8);
        }));
    EXPECT_EQ(string36.GetNotificationName(), "A.B");
    EXPECT_EQ(string36.GetSenderName(), "S");

    const Bytes unreadable =
        WriteWithNames([&](RemotingWriter& writer) { writer.WriteObjectType(static_cast<TulType>(26)); });
    EXPECT_EQ(MessageOf<Kiv::NotSupportedException>([&] { Read(unreadable); }),
              "TulType String26 not supported.");
}

TEST(NotificationRegistrationInfoTest, EveryTruncationRaisesCommunicationException)
{
    const Bytes message =
        Write(NotificationRegistrationInfo(NotificationNameId(9), String("A.B"), String("me"),
                                           Severity::Error, PayloadTypeId(4), Status::Registered));
    for (std::size_t length = 0; length < message.size(); ++length)
    {
        EXPECT_THROW(Read(Bytes(message.begin(), message.begin() + length)), Kiv::CommunicationException)
            << length;
    }
}
