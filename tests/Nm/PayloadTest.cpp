#include <Nm/GenericPayload.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/LongStringPayloadField.h>
#include <Nm/NmSubscribeFailedPayload.h>
#include <Nm/Notification.h>
#include <Nm/StringPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using Kiv::String;
using Kiv::System::Tul::TulType;
using ::testing::ThrowsMessage;
using Variant = TulVariant<512>;
using Broker = Internal::NotificationBroker::NotificationBroker;

namespace
{
const char* const NotEnoughFields =
    "Payload: Cannot add field because the associated notification does not contain enough fields.";

Notification Wrap(PayloadTypeId type, const std::vector<Variant>& payload,
                  NotificationNameId name = NotificationNameId(7))
{
    return Notification(NotificationId(1), name, Kiv::DateTime::GetUtcNow(), Severity::Info, type, payload);
}

// A payload class whose id no other test asks for.
struct CachedPayload : SpecializedPayload<CachedPayload>
{
    CachedPayload() : SpecializedPayload(String("{}")) {}
};

// Payload type ids are cached per process, so these cases share one broker, with its manager: a payload
// of the wrong type is reported in the names that it finds.
class PayloadTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        Kiv::System::Commons::AppDomain::Create("ProcessA");
        Internal::NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));
    }
    static void TearDownTestSuite()
    {
        Internal::NotificationManagerSetup::Dispose();
        Kiv::System::Commons::AppDomain::Dispose();
        Kiv::System::Tul::Testing::UseNewTransport();
    }
};
}  // namespace

/// A payload class that reads received notifications; outside any namespace for a short type name.
class WrappedPayload : public SpecializedPayload<WrappedPayload>
{
public:
    explicit WrappedPayload(const Notification& notification) : SpecializedPayload(notification) {}
};

TEST(PayloadTypeIdTest, TheIdIsAskedForOnceAndKeptToTheEndOfTheProcess)
{
    EXPECT_THAT([] { CachedPayload(); }, ThrowsMessage<Kiv::InvalidOperationException>(
                                             "Cannot access NotificationManager or NotificationBroker!"));
    Kiv::System::Commons::AppDomain::Create("ProcessA");
    AppDomainSingleton<Broker>::CreateInstance(4u);
    // Another type first, so that a broker asked afresh would hand this one a different id.
    AppDomainSingleton<Broker>::GetInstance().GetPayloadTypeId("Some.Other.Type");
    const PayloadTypeId id = CachedPayload::GetPayloadTypeId();
    EXPECT_EQ(AppDomainSingleton<Broker>::GetInstance().GetPayloadTypeName(id),
              "(anonymous namespace)::CachedPayload");
    AppDomainSingleton<Broker>::DisposeInstance();
    EXPECT_EQ(CachedPayload().GetId(), id) << "kept without a broker";

    // A new broker in this process is not asked again.
    AppDomainSingleton<Broker>::CreateInstance(4u);
    EXPECT_EQ(CachedPayload::GetPayloadTypeId(), id);
    AppDomainSingleton<Broker>::DisposeInstance();
    Kiv::System::Commons::AppDomain::Dispose();
    Kiv::System::Tul::Testing::UseNewTransport();
}

TEST(GenericPayloadTest, FieldsAreDeclaredInOrderAndAWrappedNotificationIsReadOnly)
{
    GenericPayload payload(PayloadTypeId(4), "P", {Variant("{0}{1}"), Variant("x")});
    EXPECT_EQ(payload.AddField(TulType::String), 1u);
    EXPECT_EQ(payload.AddField(TulType::UInt32), 2u);
    payload.SetFieldValue(2, Variant(std::int32_t{-3}));
    EXPECT_EQ(payload.ToString(), "x-3");
    EXPECT_THAT(
        [&] { payload.SetFieldValue(3, Variant(1)); },
        ThrowsMessage<Kiv::ArgumentOutOfRangeException>(
            "Specified argument was out of the range of valid values. (argument 'fieldIndex', value '3')"));

    // A wrapped notification is read-only and declares only the fields that it holds.
    EXPECT_THAT([] { GenericPayload(Wrap(PayloadTypeId(5), {})); },
                ThrowsMessage<Kiv::InvalidOperationException>(NotEnoughFields));
    const Notification notification =
        Wrap(PayloadTypeId(5), {Variant("{0}-{1}"), Variant(1), Variant("three")});
    GenericPayload wrapped(notification);
    EXPECT_EQ(wrapped.ToString(), "1-three");
    EXPECT_THAT([&] { wrapped.SetFieldValue(0, Variant("x")); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "Cannot change a payload object referencing to an notification."));
    // A copy still reads the notification itself, so re-sending passes on every field.
    EXPECT_EQ(&GenericPayload(wrapped).GetAsRawPayloadType(), &notification.GetPayload());
    EXPECT_EQ(wrapped.AddField(TulType::Int32), 1u);
    EXPECT_EQ(wrapped.AddField(TulType::String), 2u);
    EXPECT_THAT([&] { wrapped.AddField(TulType::String); },
                ThrowsMessage<Kiv::InvalidOperationException>(NotEnoughFields));
}

// A client of the public service has no manager to ask for the type id, and needs none for the fields.
TEST(StringPayloadTest, ItsFieldsNeedNoManagerAndTheirTextFormEndsAtTheLimit)
{
    const String longest(StringPayload::MaxFormattableLength, 'x');
    EXPECT_EQ(GenericPayload(PayloadTypeId(9), "P", StringPayload::GetFields(longest)).ToString(), longest);
    EXPECT_THAT(
        [&] { GenericPayload(PayloadTypeId(9), "P", StringPayload::GetFields(longest + "x")).ToString(); },
        ThrowsMessage<Kiv::NotSupportedException>("Payload: cannot format payload with 51 fields."));
}

TEST_F(PayloadTest, StringPayloadRoundTripsAtPieceBoundariesAndIsBoundInLength)
{
    for (const std::size_t length : {0, 510, 511, 1022, 24527})
    {
        // Numbered text, so that a piece out of place shows.
        std::string text;
        while (text.size() < length)
        {
            text += std::to_string(text.size()) + ",";
        }
        text.resize(length);
        const StringPayload sent(text.c_str());
        const auto& values = sent.GetAsRawPayloadType();
        ASSERT_EQ(values.size(), length / 511 + 3) << length;
        EXPECT_EQ(sent.ToString(), text) << length;

        const Notification received = Wrap(sent.GetId(), values);
        GenericPayload view(sent.GetId(), StringPayload::GetPayloadTypeName(), received);
        const LongStringPayloadField field(view, view.AddField(TulType::UInt32));
        EXPECT_EQ(field.GetString(), text) << length;
        EXPECT_EQ(field.IsEmpty(), length == 0);
    }
    // The format string of the pieces bounds the length; the formatter's field limit bounds the text.
    EXPECT_THROW(StringPayload(String(62853, 'x')), Kiv::ArgumentException);
    EXPECT_THAT([] { StringPayload(String(24528, 'x')).ToString(); },
                ThrowsMessage<Kiv::NotSupportedException>("Payload: cannot format payload with 51 fields."));
}

TEST_F(PayloadTest, TypeIdsComeFromTheBrokerByTheClassNameAndAreCheckedOnWrapping)
{
    auto& broker = AppDomainSingleton<Broker>::GetInstance();
    const StringPayload payload("x");
    EXPECT_EQ(broker.GetPayloadTypeId("Kiv::System::Nm::StringPayload"), payload.GetId());
    const PayloadTypeId other = NmSubscribeToUnregisteredPayload::GetPayloadTypeId();
    const NotificationNameId name = broker.RegisterNotification("A.B", "S", Severity::Info, other);
    EXPECT_THAT(
        [&] { GenericPayload(payload.GetId(), payload.GetName(), Wrap(other, {Variant("{}")}, name)); },
        ThrowsMessage<Kiv::ArgumentException>(
            "Creating payload object with invalid type parameter 'Kiv::System::Nm::StringPayload': The "
            "notification 'A.B' uses PayloadType "
            "'Kiv::System::Nm::NmSubscribeFailedPayload<Kiv::System::Nm::NmSubscribeToUnregisteredPayload>"
            "'"));
    // A payload class shares its name among its objects; wrapping tells it as before.
    const WrappedPayload own(Wrap(WrappedPayload::GetPayloadTypeId(), {Variant("{}")}, name));
    EXPECT_EQ(own.GetName(), WrappedPayload::GetPayloadTypeName());
    EXPECT_EQ(own.GetName(), "WrappedPayload");
    EXPECT_THAT(
        [&] { WrappedPayload(Wrap(other, {Variant("{}")}, name)); },
        ThrowsMessage<Kiv::ArgumentException>(::testing::StartsWith(
            "Creating payload object with invalid type parameter 'WrappedPayload': The notification 'A.B'")));
}
