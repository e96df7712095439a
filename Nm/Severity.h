#pragma once

#include <Nm/EnumDictionary.h>

#include <Kiv/Export.h>

#include <cstdint>
#include <istream>
#include <ostream>

namespace Kiv::System::Nm
{
/// How serious a notification is. `Default` is a second name of code 0, which always prints as
/// "Internal"; "Default" does not parse.
enum class Severity : std::uint8_t
{
    Internal = 0,
    Info = 1,
    Warning = 2,
    Error = 3,
    Critical = 4,
    Fatal = 5,
    Emerge = 6,
    Default = 0
};

/// The dictionary text; a code without one is written as a number with failbit set.
KIV_API std::ostream& operator<<(std::ostream& out, Severity severity);
/// One word, matched exactly; failbit for an unknown word.
KIV_API std::istream& operator>>(std::istream& in, Severity& severity);
}  // namespace Kiv::System::Nm

namespace Kiv
{
template <>
KIV_API const EnumDictionary<System::Nm::Severity>& EnumDictionary<System::Nm::Severity>::GetInstance();
}  // namespace Kiv

template <>
struct fmt::formatter<Kiv::System::Nm::Severity> : Kiv::Detail::EnumStreamFormatter<Kiv::System::Nm::Severity>
{
};
