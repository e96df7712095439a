#include <Nm/IdType.h>

#include <Kiv/BasicString.h>

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <type_traits>
#include <unordered_map>

using namespace Kiv::System::Nm;

// Aliases over the same or another raw type must not mix without an explicit raw value.
static_assert(!std::is_convertible_v<PayloadTypeId, NotificationNameId>);
static_assert(!std::is_convertible_v<PayloadTypeId, NotificationDispatcherId>);
static_assert(!std::is_convertible_v<std::uint32_t, NotificationNameId>);
static_assert(!std::is_convertible_v<NotificationNameId, std::uint32_t>);
static_assert(sizeof(NotificationId) == sizeof(std::uint64_t) &&
              sizeof(PayloadTypeId) == sizeof(std::uint16_t));
static_assert(std::is_trivially_copyable_v<NotificationNameId>);

TEST(IdTypeTest, ComparesByRawValueAndDefaultsToInvalidZero)
{
    EXPECT_EQ(NotificationNameId().GetValue(), 0u);
    EXPECT_EQ(NotificationNameId(), NotificationNameId(0));
    EXPECT_NE(NotificationNameId(0), NotificationNameId(1));
    EXPECT_TRUE(PayloadTypeId(2) < PayloadTypeId(10));
    EXPECT_FALSE(PayloadTypeId(2) < PayloadTypeId(2));
    EXPECT_EQ(NotificationNameId(7).GetValue(), PayloadTypeId(7).GetValue());
}

TEST(IdTypeTest, HashIsRawValueAndServesAsMapKey)
{
    EXPECT_EQ(std::hash<NotificationId>()(NotificationId(123456789)), 123456789u);
    std::unordered_map<NotificationDispatcherId, int> unordered{{NotificationDispatcherId(3), 30}};
    EXPECT_EQ(unordered.at(NotificationDispatcherId(3)), 30);
    std::map<NotificationNameId, int> ordered{{NotificationNameId(9), 9}, {NotificationNameId(4), 4}};
    EXPECT_EQ(ordered.begin()->first, NotificationNameId(4));
}

TEST(IdTypeTest, PrintsUnsignedDecimalOnStreamAndInFormat)
{
    std::ostringstream out;
    out << NotificationId(18446744073709551615ull) << ' ' << PayloadTypeId(65535) << ' '
        << NotificationNameId(0);
    EXPECT_EQ(out.str(), "18446744073709551615 65535 0");
    EXPECT_EQ(Kiv::String::Format("id {}", NotificationDispatcherId(42)), "id 42");
    EXPECT_EQ(Kiv::String::Format("{0}/{0}", NotificationNameId(4000000000u)), "4000000000/4000000000");
}

TEST(IdTypeTest, ConvertsBetweenRawAndTypedVectorsKeepingOrder)
{
    EXPECT_TRUE(ConvertRawIdsToIdTypes<NotificationNameId>({}).empty());

    const std::vector<std::uint16_t> raw{5, 1, 65535, 0};
    const auto ids = ConvertRawIdsToIdTypes<PayloadTypeId>(raw);
    ASSERT_EQ(ids.size(), 4u);
    EXPECT_EQ(ids[0], PayloadTypeId(5));
    EXPECT_EQ(ids[2], PayloadTypeId(65535));
    EXPECT_EQ(ConvertIdTypesToRawIds(ids), raw);
}
