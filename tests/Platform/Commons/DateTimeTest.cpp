#include <Kiv/DateTime.h>
#include <Kiv/SecureString.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>

using Kiv::DateTime;
using Kiv::DateTimeKind;

namespace
{
// 2026-11-21T08:15:30 UTC as Unix seconds.
constexpr std::uint64_t Instant = 1795248930;

DateTime AtUnixSeconds(std::uint64_t seconds, std::uint64_t extraTicks, DateTimeKind kind)
{
    return DateTime(DateTime::UnixEpochTicks + seconds * DateTime::TicksPerSecond + extraTicks, kind);
}
}  // namespace

TEST(DateTimeTest, IsoTextOfKnownInstants)
{
    EXPECT_EQ(AtUnixSeconds(Instant, 1234567, DateTimeKind::Utc).ToIso8601String(), "2026-11-21T08:15:30.1234567Z");
    EXPECT_EQ(AtUnixSeconds(Instant, 0, DateTimeKind::Unspecified).ToIso8601String(), "2026-11-21T08:15:30.0000000");
    EXPECT_EQ(DateTime(0, DateTimeKind::Utc).ToIso8601String(), "0001-01-01T00:00:00.0000000Z");
    EXPECT_EQ(AtUnixSeconds(951782400, 0, DateTimeKind::Utc).ToIso8601String(), "2000-02-29T00:00:00.0000000Z");
}

TEST(DateTimeTest, LocalKindCarriesAnOffset)
{
    const Kiv::String text = AtUnixSeconds(Instant, 0, DateTimeKind::Local).ToIso8601String();
    ASSERT_EQ(text.size(), 33u);
    EXPECT_TRUE(text[27] == '+' || text[27] == '-') << text;
    EXPECT_EQ(text[30], ':');
}

TEST(DateTimeTest, KindLivesInTheTopTwoBits)
{
    const DateTime utc(42, DateTimeKind::Utc);
    EXPECT_EQ(utc.GetRawValue(), (std::uint64_t{1} << 62) | 42);
    EXPECT_EQ(utc.GetTicks(), 42u);
    EXPECT_EQ(DateTime::FromRawValue(std::uint64_t{2} << 62).GetKind(), DateTimeKind::Local);
    EXPECT_EQ(DateTime().GetKind(), DateTimeKind::Unspecified);
    EXPECT_EQ(DateTime().GetRawValue(), 0u);
}

TEST(DateTimeTest, UtcNowIsUtcAndCurrent)
{
    const DateTime now = DateTime::GetUtcNow();
    EXPECT_EQ(now.GetKind(), DateTimeKind::Utc);
    const auto unixNow = std::chrono::duration_cast<std::chrono::seconds>(
                             std::chrono::system_clock::now().time_since_epoch())
                             .count();
    const auto seconds = static_cast<long long>((now.GetTicks() - DateTime::UnixEpochTicks) / DateTime::TicksPerSecond);
    EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(unixNow), 5.0);
}

TEST(SecureStringTest, NeverWritesPastTheDestinationAndAlwaysTerminates)
{
    char buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), 'x');
    EXPECT_EQ(Kiv::SecureStrncpy(buffer, 4, "abcdef", 6), ERANGE);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], 'x');

    EXPECT_EQ(Kiv::SecureStrncpy(buffer, sizeof(buffer), "abcdef", 2), 0);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(Kiv::SecureStrncpy(buffer, sizeof(buffer), "ab", 5), 0);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(Kiv::SecureStrncpy(buffer, 0, "ab", 2), EINVAL);
    EXPECT_EQ(Kiv::SecureStrncpy(buffer, sizeof(buffer), nullptr, 2), EINVAL);
    EXPECT_STREQ(buffer, "");

    EXPECT_EQ(Kiv::SecureStrnlen("abc", 10), 3u);
    EXPECT_EQ(Kiv::SecureStrnlen("abcdef", 4), 4u);
    EXPECT_EQ(Kiv::SecureStrnlen(nullptr, 4), 0u);
}
