#include <Nm/Internal/NotificationBroker/PayloadTypeRepository.h>

#include <Kiv/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NotificationBroker;
using ::testing::ThrowsMessage;

TEST(PayloadTypeRepositoryTest, AskingIsRegisteringAndIdsAreStable)
{
    PayloadTypeRepository types;
    EXPECT_EQ(types.GetPayloadTypeId("First"), PayloadTypeId(1));
    EXPECT_EQ(types.GetPayloadTypeId("Second"), PayloadTypeId(2));
    EXPECT_EQ(types.GetPayloadTypeId("First"), PayloadTypeId(1));
    EXPECT_EQ(types.GetPayloadTypeName(PayloadTypeId(2)), "Second");
    EXPECT_TRUE(types.Contains(PayloadTypeId(1)));
    EXPECT_FALSE(types.Contains(PayloadTypeId(3)));
}

TEST(PayloadTypeRepositoryTest, InvalidNamesAndIdsAreRefused)
{
    PayloadTypeRepository types;
    EXPECT_THAT([&] { types.GetPayloadTypeId(""); },
                ThrowsMessage<Kiv::ArgumentException>(
                    "The supplied payload type name is invalid. (argument 'payloadTypeName', value '')"));
    EXPECT_EQ(types.GetPayloadTypeId("T"), PayloadTypeId(1)) << "the refused name must not use up an id";
    EXPECT_THAT([&] { types.GetPayloadTypeName(PayloadTypeId(7)); },
                ThrowsMessage<Kiv::ArgumentException>(
                    "The supplied payload type id is unknown. (argument 'payloadTypeId', value '7')"));
    EXPECT_THAT([&] { types.Contains(PayloadTypeId(0)); },
                ThrowsMessage<Kiv::ArgumentException>(
                    "The supplied payload type id is invalid. (argument 'payloadTypeId', value '0')"));
}

TEST(PayloadTypeRepositoryTest, ExhaustedGeneratorHandsOutTheInvalidId)
{
    PayloadTypeRepository types;
    for (int i = 1; i <= 65535; ++i)
    {
        ASSERT_EQ(types.GetPayloadTypeId("T" + std::to_string(i)),
                  PayloadTypeId(static_cast<std::uint16_t>(i)));
    }
    EXPECT_EQ(types.GetPayloadTypeId("OneTooMany"), PayloadTypeId(0));
    EXPECT_THROW(types.GetPayloadTypeName(PayloadTypeId(0)), Kiv::ArgumentException);
}
