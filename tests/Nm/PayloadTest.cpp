#include <Nm/GenericPayload.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/LongStringPayloadField.h>
#include <Nm/NmSubscribeFailedPayload.h>
#include <Nm/Notification.h>
#include <Nm/StringPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace Kiv::System::Nm;
using Kiv::ArgumentException;
using Kiv::ArgumentOutOfRangeException;
using Kiv::InvalidCastException;
using Kiv::InvalidOperationException;
using Kiv::String;
using Kiv::System::Nm::Internal::NotificationBroker::NotificationBroker;
using Kiv::System::Tul::TulType;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
using Variant = TulVariant<512>;

namespace
{
const char* const ReadOnly = "Cannot change a payload object referencing to an notification.";
const char* const NotEnoughFields =
    "Payload: Cannot add field because the associated notification does not contain enough fields.";

Notification Wrap(PayloadTypeId type, const std::vector<Variant>& payload,
                  NotificationNameId name = NotificationNameId(7))
{
    return Notification(NotificationId(1), name, Kiv::DateTime::GetUtcNow(), Severity::Info, type, payload);
}

// Over the wire and back, as a subscriber in another process receives it.
Notification Transmit(const Notification& sent)
{
    Kiv::System::Tul::RemotingWriter writer;
    writer.WriteBeginStruct(Notification::GetFieldCount());
    sent.Serialize(writer);
    const auto& bytes = writer.GetBuffer();
    Kiv::System::Tul::RemotingReader reader(bytes.data(), bytes.size());
    reader.ReadBeginStruct(Notification::GetFieldCount());
    Notification received;
    received.Deserialize(reader);
    return received;
}

// A receiver's view of a StringPayload: the wrapping form, declaring the same fields in the same order.
class StringPayloadView : public SpecializedPayload<StringPayload>
{
public:
    explicit StringPayloadView(const Notification& notification)
        : SpecializedPayload(notification), text(payload, payload.AddField(TulType::UInt32))
    {
    }
    String GetString() const { return text.GetString(); }
    bool IsEmpty() const { return text.IsEmpty(); }

private:
    LongStringPayloadField text;
};

// A payload class whose id no test ever asks for while a broker is there.
class NeverUsedPayload : public SpecializedPayload<NeverUsedPayload>
{
public:
    NeverUsedPayload() : SpecializedPayload(String("{}")) {}
};

String Letters(std::size_t length)
{
    String text;
    for (std::size_t i = 0; i < length; ++i)
    {
        text.push_back(static_cast<char>('a' + i % 26));
    }
    return text;
}

// Payload type ids are cached per process, so the whole suite shares one broker.
class PayloadTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        Kiv::System::Commons::AppDomain::Create("ProcessA");
        // With the manager: a payload of the wrong type is reported in the names that it finds.
        Kiv::System::Nm::Internal::NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));
    }
    static void TearDownTestSuite()
    {
        Kiv::System::Nm::Internal::NotificationManagerSetup::Dispose();
        Kiv::System::Commons::AppDomain::Dispose();
        Kiv::System::Tul::ServiceManager::Reset();
    }
    static NotificationBroker& Broker() { return AppDomainSingleton<NotificationBroker>::GetInstance(); }
};
}  // namespace

TEST(PayloadWithoutBrokerTest, TypeIdsNeedABrokerAndAWrongTypeNeedsAManager)
{
    EXPECT_EQ(NeverUsedPayload::GetPayloadTypeName(), "(anonymous namespace)::NeverUsedPayload");
    EXPECT_THAT([] { NeverUsedPayload(); }, ThrowsMessage<InvalidOperationException>(
                                                "Cannot access NotificationManager or NotificationBroker!"));

    const Notification notification = Wrap(PayloadTypeId(5), {Variant("{}")});
    EXPECT_THAT([&] { GenericPayload(PayloadTypeId(9), "Mine", notification); },
                ThrowsMessage<Kiv::Exception>(HasSubstr("was not created yet!")));
}

TEST(GenericPayloadTest, UnderConstructionFieldsAreDeclaredAndStoredWithoutTypeCheck)
{
    GenericPayload payload(PayloadTypeId(4), "P");
    EXPECT_EQ(payload.GetFieldCount(), 1u);
    EXPECT_EQ(payload.GetFieldValue(0).GetType(), TulType::Unset);
    EXPECT_EQ(payload.ToString(), "");

    EXPECT_EQ(payload.AddField(TulType::UInt32), 1u);
    payload.SetFieldValue(1, Variant(std::int32_t{-3}));
    EXPECT_EQ(payload.GetFieldType(1), TulType::UInt32);
    payload.SetFieldValue(0, Variant("v={0}"));
    EXPECT_EQ(payload.ToString(), "v=-3");
    EXPECT_THAT(
        [&] { payload.SetFieldValue(2, Variant(1)); },
        ThrowsMessage<ArgumentOutOfRangeException>(
            "Specified argument was out of the range of valid values. (argument 'fieldIndex', value '2')"));

    // Values handed in are used by the fields declared later, and only missing ones are made.
    GenericPayload given(PayloadTypeId(4), "P", {Variant("{0}{1}"), Variant("x"), Variant("y")});
    EXPECT_EQ(given.GetFieldCount(), 1u);
    EXPECT_EQ(given.AddField(TulType::String), 1u);
    EXPECT_EQ(given.AddField(TulType::String), 2u);
    EXPECT_EQ(given.GetAsRawPayloadType().size(), 3u);
    EXPECT_EQ(given.ToString(), "xy");
    EXPECT_EQ(given.AddField(TulType::String), 3u);
    EXPECT_EQ(given.GetFieldValue(3).GetType(), TulType::Unset);
    EXPECT_EQ(given.MoveOutRawPayload().size(), 4u);
}

TEST(GenericPayloadTest, AWrappedNotificationIsReadOnlyAndDeclaresOnlyWhatItHolds)
{
    EXPECT_THAT([] { GenericPayload(Wrap(PayloadTypeId(5), {})); },
                ThrowsMessage<InvalidOperationException>(NotEnoughFields));

    const Notification notification =
        Wrap(PayloadTypeId(5), {Variant("{0}-{2}"), Variant(1), Variant("two"), Variant("three")});
    GenericPayload payload(notification);
    EXPECT_EQ(payload.GetId(), PayloadTypeId(5));
    EXPECT_EQ(payload.GetName(), "");
    EXPECT_EQ(payload.GetFieldCount(), 1u);
    EXPECT_TRUE(payload.IsReadOnly() && payload.HasAssociatedNotification());
    EXPECT_EQ(payload.GetFieldValue(3).ToString(), "three");
    EXPECT_THROW(payload.GetFieldType(3), ArgumentOutOfRangeException);
    EXPECT_THROW(payload.GetFieldValue(4), ArgumentOutOfRangeException);
    EXPECT_THAT([&] { payload.SetFieldValue(0, Variant("x")); },
                ThrowsMessage<InvalidOperationException>(ReadOnly));
    EXPECT_EQ(payload.ToString(), "1-three");

    // A copy still reads the notification itself, so re-sending passes on every field.
    const GenericPayload copy = payload;
    EXPECT_EQ(&copy.GetAsRawPayloadType(), &notification.GetPayload());

    EXPECT_EQ(payload.AddField(TulType::Int32), 1u);
    payload.AddField(TulType::String);
    EXPECT_EQ(payload.AddField(TulType::String), 3u);
    EXPECT_FALSE(payload.CanFieldBeAdded());
    EXPECT_THAT([&] { payload.AddField(TulType::String); },
                ThrowsMessage<InvalidOperationException>(NotEnoughFields));
}

TEST(LongStringPayloadFieldTest, PiecesFollowTheCountFieldWhereverItStands)
{
    GenericPayload payload(PayloadTypeId(4), "P");
    payload.AddField(TulType::Int32);
    LongStringPayloadField field(payload, payload.AddField(TulType::UInt32));
    const String text = Letters(600) + String("\0hidden", 7);
    field.CreatePayloadFieldsForString(text);
    field.SetLongStringFieldValues(text);
    EXPECT_EQ(payload.GetFieldCount(), 5u);
    EXPECT_EQ(field.GetFieldCount(), 2u);
    EXPECT_EQ(field.GetFormatString(), "{2}{3}");
    EXPECT_EQ(field.GetString(), Letters(600)) << "a read stops at a NUL";
    EXPECT_FALSE(field.IsEmpty());

    // More text than pieces made; then pieces and count of the wrong type.
    EXPECT_THAT(
        [&] { field.SetLongStringFieldValues(String(1022, 'x')); },
        ThrowsMessage<ArgumentOutOfRangeException>(
            "Specified argument was out of the range of valid values. (argument 'fieldIndex', value '5')"));
    payload.SetFieldValue(4, Variant(1));
    EXPECT_THAT([&] { field.GetString(); },
                ThrowsMessage<InvalidCastException>("Cannot convert to string: TulVariant is of type Int32"));
    payload.SetFieldValue(2, Variant("2"));
    EXPECT_THAT(
        [&] { field.GetFieldCount(); },
        ThrowsMessage<InvalidCastException>(
            "Cannot copy value to argument: TulVariant contains data type String but arg is of type UInt32"));
}

TEST_F(PayloadTest, StringPayloadRoundTripsAtPieceBoundariesAndWithinTheFormatterLimit)
{
    for (const std::size_t length : {0, 510, 511, 1022, 24527})
    {
        const String text = Letters(length);
        const StringPayload sent(text);
        const std::uint32_t pieces = static_cast<std::uint32_t>(length / 511 + 1);
        const auto& values = sent.GetAsRawPayloadType();
        ASSERT_EQ(values.size(), pieces + 2u) << length;
        std::uint32_t count = 0;
        values[1].GetValue(count);
        EXPECT_EQ(count, pieces);
        EXPECT_EQ(values.back().ToString().size(), length % 511) << "the last piece is shorter than 511";
        EXPECT_EQ(sent.ToString(), text) << length;

        const Notification received = Transmit(Wrap(sent.GetId(), values));
        StringPayloadView view(received);
        EXPECT_EQ(view.GetString(), text) << length;
        EXPECT_EQ(view.IsEmpty(), length == 0);
        EXPECT_EQ(view.ToString(), text);
        EXPECT_THAT([&] { view.SetFormatString("x"); }, ThrowsMessage<InvalidOperationException>(ReadOnly));
    }
    EXPECT_EQ(StringPayload("ab").ToString(), "ab");
}

TEST_F(PayloadTest, StringPayloadLengthIsBoundByItsFormatStringAndItsTextByTheFormatter)
{
    const StringPayload longest(String(62852, 'x'));
    EXPECT_EQ(longest.GetAsRawPayloadType().size(), 125u);
    EXPECT_EQ(longest.GetAsRawPayloadType()[0].ToString().size(), 507u);
    EXPECT_THAT([] { StringPayload(String(62853, 'x')); },
                ThrowsMessage<ArgumentException>(
                    "Cannot copy string: argument string length 512 exceeds MaxStringSize 512"));
    EXPECT_THAT([] { StringPayload(String(24528, 'x')).ToString(); },
                ThrowsMessage<Kiv::NotSupportedException>("Payload: cannot format payload with 51 fields."));
}

TEST_F(PayloadTest, TypeIdsComeFromTheBrokerByTheClassNameAndAreCheckedOnWrapping)
{
    EXPECT_EQ(StringPayload::GetPayloadTypeName(), "Kiv::System::Nm::StringPayload");
    EXPECT_EQ(
        NmSubscribeToNotRegisteredPayload::GetPayloadTypeName(),
        "Kiv::System::Nm::NmSubscribeFailedPayload<Kiv::System::Nm::NmSubscribeToNotRegisteredPayload>");
    EXPECT_EQ(NmSubscribeToUnregisteredPayload::GetPayloadTypeName(),
              "Kiv::System::Nm::NmSubscribeFailedPayload<Kiv::System::Nm::NmSubscribeToUnregisteredPayload>");

    const StringPayload payload("x");
    EXPECT_NE(payload.GetId(), PayloadTypeId(0));
    EXPECT_EQ(payload.GetName(), StringPayload::GetPayloadTypeName());
    EXPECT_EQ(Broker().GetPayloadTypeId("Kiv::System::Nm::StringPayload"), payload.GetId());

    const NotificationNameId name = Broker().RegisterNotification(
        "A.B", "S", Severity::Info, NmSubscribeToNotRegisteredPayload::GetPayloadTypeId());
    const Notification other =
        Wrap(NmSubscribeToNotRegisteredPayload::GetPayloadTypeId(), {Variant("{}")}, name);
    EXPECT_THAT(
        [&] { StringPayloadView{other}; },
        ThrowsMessage<ArgumentException>(
            "Creating payload object with invalid type parameter 'Kiv::System::Nm::StringPayload': The "
            "notification 'A.B' uses PayloadType "
            "'Kiv::System::Nm::NmSubscribeFailedPayload<Kiv::System::Nm::NmSubscribeToNotRegisteredPayload>"
            "'"));
}

TEST_F(PayloadTest, SubscribeFailedPayloadsCarryTheNameInOneFieldBelow512Characters)
{
    const NmSubscribeToNotRegisteredPayload notRegistered("A.B");
    EXPECT_EQ(notRegistered.GetAsRawPayloadType().size(), 2u);
    EXPECT_EQ(notRegistered.ToString(), "A subscriber subscribed to not registered notification name: A.B");
    EXPECT_EQ(NmSubscribeToUnregisteredPayload("C").ToString(),
              "A subscriber subscribed to unregistered notification name: C");

    EXPECT_EQ(NmSubscribeToUnregisteredPayload(String(511, 'n')).GetAsRawPayloadType()[1].ToString(),
              String(511, 'n'));
    EXPECT_THAT([] { NmSubscribeToNotRegisteredPayload(String(512, 'n')); },
                ThrowsMessage<ArgumentException>(
                    "Cannot copy string: argument string length 512 exceeds MaxStringSize 512"));
}
