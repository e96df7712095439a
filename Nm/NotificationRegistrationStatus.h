#pragma once

#include <Nm/EnumDictionary.h>

#include <Kiv/Export.h>

#include <cstdint>
#include <istream>
#include <ostream>

namespace Kiv::System::Nm
{
/// The state of a notification name at the broker. `Subscribed` is code 0 because a record that only a
/// subscriber caused, before any sender registered the name, carries it.
enum class NotificationRegistrationStatus : std::uint8_t
{
    Subscribed = 0,
    Registered = 1,
    Unregistered = 2
};

/// The dictionary text; a code without one is written as a number with failbit set.
KIV_API std::ostream& operator<<(std::ostream& out, NotificationRegistrationStatus status);
/// One word, matched exactly; failbit for an unknown word.
KIV_API std::istream& operator>>(std::istream& in, NotificationRegistrationStatus& status);
}  // namespace Kiv::System::Nm

namespace Kiv
{
template <>
KIV_API const EnumDictionary<System::Nm::NotificationRegistrationStatus>&
EnumDictionary<System::Nm::NotificationRegistrationStatus>::GetInstance();
}  // namespace Kiv

template <>
struct fmt::formatter<Kiv::System::Nm::NotificationRegistrationStatus>
    : Kiv::Detail::EnumStreamFormatter<Kiv::System::Nm::NotificationRegistrationStatus>
{
};
