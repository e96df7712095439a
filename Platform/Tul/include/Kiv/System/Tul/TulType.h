#pragma once

#include <Kiv/Export.h>

#include <fmt/ostream.h>

#include <cstdint>
#include <ostream>

namespace Kiv::System::Tul
{
/// The type code of a self-describing value, one byte on the wire.
enum class TulType : std::uint8_t
{
    None = 0,
    Void = 1,
    Bool = 2,
    Char = 3,
    Int8 = 4,
    UInt8 = 5,
    Int16 = 6,
    UInt16 = 7,
    Int32 = 8,
    UInt32 = 9,
    Int64 = 10,
    UInt64 = 11,
    Real32 = 12,
    Real64 = 13,
    Struct = 18,
    String = 19,
    Array = 20,
    DateTime = 23,
    Version = 24,
    Guid = 25,
    String26 = 26,
    Object = 28,
    String36 = 36,
    Alias32 = 41,
    Alias64 = 42,
    Unset = 255
};

/// The enumerator's name, e.g. "UInt32"; a code without a name as its decimal number.
KIV_API std::ostream& operator<<(std::ostream& out, TulType type);

/// The name of a code, or null for a code without one.
KIV_API const char* GetTulTypeName(TulType type) noexcept;
}  // namespace Kiv::System::Tul

template <>
struct fmt::formatter<Kiv::System::Tul::TulType> : fmt::ostream_formatter
{
};
