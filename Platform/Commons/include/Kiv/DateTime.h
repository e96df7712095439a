#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <cstdint>
#include <type_traits>

namespace Kiv
{
enum class DateTimeKind : std::uint8_t
{
    Unspecified = 0,
    Utc = 1,
    Local = 2
};

/// A point in time as one 64-bit word: the top two bits the kind, the rest 100-nanosecond ticks since
/// 0001-01-01T00:00:00. The raw word is what crosses the wire.
class KIV_API DateTime
{
public:
    static constexpr std::uint64_t TicksMask = (std::uint64_t{1} << 62) - 1;
    static constexpr int KindShift = 62;
    static constexpr std::uint64_t TicksPerSecond = 10'000'000;
    /// Ticks from 0001-01-01 to the Unix epoch.
    static constexpr std::uint64_t UnixEpochTicks = 621'355'968'000'000'000;

    constexpr DateTime() noexcept = default;
    constexpr DateTime(std::uint64_t ticks, DateTimeKind kind) noexcept
        : value((ticks & TicksMask) | (std::uint64_t(kind) << KindShift))
    {
    }

    static constexpr DateTime FromRawValue(std::uint64_t raw) noexcept
    {
        DateTime d;
        d.value = raw;
        return d;
    }

    static DateTime GetUtcNow() noexcept;

    constexpr DateTimeKind GetKind() const noexcept { return DateTimeKind(value >> KindShift); }
    constexpr std::uint64_t GetTicks() const noexcept { return value & TicksMask; }
    constexpr std::uint64_t GetRawValue() const noexcept { return value; }

    /// "2026-11-21T08:15:30.1234567Z" for Utc; no zone suffix for Unspecified; the machine's offset
    /// from UTC at that instant (e.g. "+01:00") for Local.
    String ToIso8601String() const;

    constexpr bool operator==(const DateTime& other) const noexcept { return value == other.value; }
    constexpr bool operator!=(const DateTime& other) const noexcept { return value != other.value; }

private:
    std::uint64_t value = 0;
};

// Copied byte for byte into a variant and onto the wire: 64 bits on every machine, whatever time_t is.
static_assert(sizeof(DateTime) == 8 && std::is_trivially_copyable_v<DateTime>,
              "a DateTime is one 64-bit word");
}  // namespace Kiv
