#include "Nm/RecordTestSupport.h"

#include <Nm/NotificationRegistrationInfo.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using Kiv::String;
using Status = NotificationRegistrationStatus;

TEST(NotificationRegistrationInfoTest, ANameOnlyASubscriberKnowsIsWrittenWithoutSenderAsSubscribed)
{
    RecordingWriter writer;
    NotificationRegistrationInfo(NotificationNameId(7), String("A.B.C")).Serialize(writer);
    const std::vector<std::string> expected = {"Tag UInt32",        "Data 4 0x7", "ObjectString 'A.B.C' 2",
                                               "ObjectString '' 2", "Tag UInt8",  "Data 1 0x0",
                                               "Tag UInt16",        "Data 2 0x0", "Tag UInt8",
                                               "Data 1 0x0"};
    EXPECT_EQ(writer.calls, expected);
}

TEST(NotificationRegistrationInfoTest, AllSixFieldsRoundTripAndLongNamesAreRefusedNameFirst)
{
    const std::string longest(511, 'n');
    Kiv::System::Tul::RemotingWriter writer;
    NotificationRegistrationInfo(NotificationNameId(0xDEADBEEF), String(longest), String("sender"),
                                 Severity::Emerge, PayloadTypeId(0xFFFE), Status::Unregistered)
        .Serialize(writer);
    Kiv::System::Tul::RemotingReader reader(writer.GetBuffer().data(), writer.GetBuffer().size());
    NotificationRegistrationInfo received;
    received.Deserialize(reader);
    EXPECT_TRUE(reader.IsAtEnd());
    EXPECT_EQ(received.GetNotificationNameId(), NotificationNameId(0xDEADBEEF));
    EXPECT_EQ(received.GetNotificationName(), longest);
    EXPECT_EQ(received.GetSenderName(), "sender");
    EXPECT_EQ(received.GetSeverity(), Severity::Emerge);
    EXPECT_EQ(received.GetPayloadTypeId(), PayloadTypeId(0xFFFE));
    EXPECT_EQ(received.GetStatus(), Status::Unregistered);

    EXPECT_THAT(
        []
        {
            NotificationRegistrationInfo(NotificationNameId(1), String(600, 'a'), String(700, 'b'),
                                         Severity::Info, PayloadTypeId(1), Status::Registered);
        },
        ::testing::ThrowsMessage<Kiv::ArgumentException>(
            "Cannot copy string: argument string length 600 exceeds MaxStringSize 512"));
    EXPECT_THROW(NotificationRegistrationInfo(NotificationNameId(1), String("A"), String(512, 'b'),
                                              Severity::Info, PayloadTypeId(1), Status::Registered),
                 Kiv::ArgumentException);
    EXPECT_THROW(NotificationRegistrationInfo(NotificationNameId(1), String(512, 'x')),
                 Kiv::ArgumentException);
}
