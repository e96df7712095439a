// DateTime: ticks, kinds and the ISO 8601 text.

#include <Kiv/DateTime.h>

#include "Support/StringPrinter.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace Kiv;

namespace
{
DateTime AtUnixSeconds(std::uint64_t seconds, std::uint64_t extraTicks, DateTimeKind kind)
{
    return DateTime(DateTime::UnixEpochTicks + seconds * DateTime::TicksPerSecond + extraTicks, kind);
}
}  // namespace

TEST(DateTimeTest, IsoTextOfKnownInstants)
{
    EXPECT_EQ(AtUnixSeconds(1795248930, 1234567, DateTimeKind::Utc).ToIso8601String(),
              "2026-11-21T08:15:30.1234567Z");
    EXPECT_EQ(AtUnixSeconds(1795248930, 0, DateTimeKind::Unspecified).ToIso8601String(),
              "2026-11-21T08:15:30.0000000");
    EXPECT_EQ(AtUnixSeconds(951782400, 0, DateTimeKind::Utc).ToIso8601String(),
              "2000-02-29T00:00:00.0000000Z");
    EXPECT_EQ(DateTime(0, DateTimeKind::Utc).ToIso8601String(), "0001-01-01T00:00:00.0000000Z");
    // Local time carries the machine's offset, "+hh:mm" or "-hh:mm".
    const std::string local = AtUnixSeconds(1795248930, 0, DateTimeKind::Local).ToIso8601String();
    ASSERT_EQ(local.size(), 33u) << local;
    EXPECT_TRUE(local[27] == '+' || local[27] == '-') << local;
    EXPECT_EQ(local[30], ':') << local;
}

TEST(DateTimeTest, KindLivesInTheTopTwoBitsOfTheRawValue)
{
    const DateTime utc(42, DateTimeKind::Utc);
    EXPECT_EQ(utc.GetRawValue(), (std::uint64_t{1} << 62) | 42);
    EXPECT_EQ(utc.GetTicks(), 42u);
    EXPECT_EQ(DateTime::FromRawValue(std::uint64_t{2} << 62).GetKind(), DateTimeKind::Local);
}

TEST(DateTimeTest, UtcNowIsUtcAndCurrent)
{
    const DateTime now = DateTime::GetUtcNow();
    const auto unixNow = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    EXPECT_EQ(now.GetKind(), DateTimeKind::Utc);
    EXPECT_NEAR(static_cast<double>((now.GetTicks() - DateTime::UnixEpochTicks) / DateTime::TicksPerSecond),
                static_cast<double>(unixNow), 5.0);
}
