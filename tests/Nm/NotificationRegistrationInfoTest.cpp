// The wire form of a registration: six fields in a fixed order, and names too long refused.

#include <Nm/NotificationRegistrationInfo.h>

#include <Kiv/Exceptions.h>

#include <Nm/RecordingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using Kiv::Testing::RecordingWriter;
using ::testing::ThrowsMessage;

TEST(NotificationRegistrationInfoTest, TheSixFieldsAreWrittenInTheFixedOrderAndLongNamesAreRefusedNameFirst)
{
    RecordingWriter writer;
    NotificationRegistrationInfo(NotificationNameId(0xDEADBEEF), Kiv::String("A.B"), Kiv::String("sender"),
                                 Severity::Emerge, PayloadTypeId(0xFFFE),
                                 NotificationRegistrationStatus::Unregistered)
        .Serialize(writer);
    const std::vector<std::string> expected = {
        "Tag UInt32", "Data 4 0xdeadbeef", "ObjectString 'A.B' 2", "ObjectString 'sender' 2",
        "Tag UInt8",  "Data 1 0x6",        "Tag UInt16",           "Data 2 0xfffe",
        "Tag UInt8",  "Data 1 0x2"};
    EXPECT_EQ(writer.calls, expected);
    EXPECT_THAT(
        []
        {
            NotificationRegistrationInfo(NotificationNameId(1), Kiv::String(600, 'a'), Kiv::String(700, 'b'),
                                         Severity::Info, PayloadTypeId(1),
                                         NotificationRegistrationStatus::Registered);
        },
        ThrowsMessage<Kiv::ArgumentException>(
            "Cannot copy string: argument string length 600 exceeds MaxStringSize 512"));
}
