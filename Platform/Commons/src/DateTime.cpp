#include <Kiv/DateTime.h>

#include <ctime>

namespace Kiv
{
namespace
{
struct CivilDate
{
    long long year;
    unsigned month;
    unsigned day;
};

// Days since 1970-01-01 to a proleptic Gregorian date (H. Hinnant's civil_from_days).
CivilDate CivilFromDays(long long z)
{
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long long y = static_cast<long long>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    const unsigned d = doy - (153 * mp + 2) / 5 + 1;
    const unsigned m = mp < 10 ? mp + 3 : mp - 9;
    return {y + (m <= 2), m, d};
}

// The machine's offset from UTC, in seconds, at a Unix time.
long LocalOffsetSeconds(long long unixSeconds)
{
    std::time_t t = static_cast<std::time_t>(unixSeconds);
    std::tm local{};
    localtime_r(&t, &local);
    return local.tm_gmtoff;
}
}  // namespace

DateTime DateTime::GetUtcNow() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::uint64_t ticks = UnixEpochTicks + static_cast<std::uint64_t>(now.tv_sec) * TicksPerSecond +
                                static_cast<std::uint64_t>(now.tv_nsec) / 100;
    return DateTime(ticks, DateTimeKind::Utc);
}

String DateTime::ToIso8601String() const
{
    const std::uint64_t ticks = GetTicks();
    const long long seconds = static_cast<long long>(ticks / TicksPerSecond);
    const unsigned fraction = static_cast<unsigned>(ticks % TicksPerSecond);
    const long long unixSeconds = seconds - static_cast<long long>(UnixEpochTicks / TicksPerSecond);
    long long days = unixSeconds / 86400;
    long long secondOfDay = unixSeconds % 86400;
    if (secondOfDay < 0)
    {
        secondOfDay += 86400;
        --days;
    }
    const CivilDate date = CivilFromDays(days);
    String text(fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:07}", date.year, date.month, date.day,
                            secondOfDay / 3600, (secondOfDay / 60) % 60, secondOfDay % 60, fraction));
    switch (GetKind())
    {
    case DateTimeKind::Utc:
        text += 'Z';
        break;
    case DateTimeKind::Local:
    {
        // Local ticks are wall-clock time; the offset is looked up at the equivalent UTC instant.
        const long offset = LocalOffsetSeconds(unixSeconds - LocalOffsetSeconds(unixSeconds));
        const long magnitude = offset < 0 ? -offset : offset;
        text += fmt::format("{}{:02}:{:02}", offset < 0 ? '-' : '+', magnitude / 3600, (magnitude / 60) % 60);
        break;
    }
    default:
        break;
    }
    return text;
}
}  // namespace Kiv
