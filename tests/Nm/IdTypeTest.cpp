#include <Nm/IdType.h>

#include <Kiv/BasicString.h>

#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>

using namespace Kiv::System::Nm;

// Aliases over the same or another raw type must not mix without an explicit raw value.
static_assert(!std::is_convertible_v<PayloadTypeId, NotificationDispatcherId>);
static_assert(!std::is_convertible_v<std::uint32_t, NotificationNameId>);
static_assert(!std::is_convertible_v<NotificationNameId, std::uint32_t>);

TEST(IdTypeTest, ComparesHashesPrintsAndConvertsByRawValue)
{
    EXPECT_EQ(NotificationNameId(), NotificationNameId(0));
    EXPECT_NE(NotificationNameId(0), NotificationNameId(1));
    EXPECT_TRUE(PayloadTypeId(2) < PayloadTypeId(10) && !(PayloadTypeId(2) < PayloadTypeId(2)));
    EXPECT_EQ(std::hash<NotificationId>()(NotificationId(123456789)), 123456789u);

    std::ostringstream out;
    out << NotificationId(18446744073709551615ull) << ' ' << PayloadTypeId(65535);
    EXPECT_EQ(out.str(), "18446744073709551615 65535");
    EXPECT_EQ(Kiv::String::Format("{0}/{0}", NotificationNameId(4000000000u)), "4000000000/4000000000");

    const std::vector<std::uint16_t> raw{5, 1, 65535, 0};
    const auto ids = ConvertRawIdsToIdTypes<PayloadTypeId>(raw);
    EXPECT_EQ(ids.at(2), PayloadTypeId(65535));
    EXPECT_EQ(ConvertIdTypesToRawIds(ids), raw);
}
