#include <Nm/NotificationRegistrationStatus.h>

namespace Kiv
{
template <>
const EnumDictionary<System::Nm::NotificationRegistrationStatus>&
EnumDictionary<System::Nm::NotificationRegistrationStatus>::GetInstance()
{
    using System::Nm::NotificationRegistrationStatus;
    static const EnumDictionary instance({{NotificationRegistrationStatus::Subscribed, "Subscribed"},
                                          {NotificationRegistrationStatus::Registered, "Registered"},
                                          {NotificationRegistrationStatus::Unregistered, "Unregistered"}},
                                         "");
    return instance;
}
}  // namespace Kiv

namespace Kiv::System::Nm
{
std::ostream& operator<<(std::ostream& out, NotificationRegistrationStatus status)
{
    return EnumDictionary<NotificationRegistrationStatus>::WriteEnumString(out, status);
}

std::istream& operator>>(std::istream& in, NotificationRegistrationStatus& status)
{
    return EnumDictionary<NotificationRegistrationStatus>::ReadEnumString(in, status);
}
}  // namespace Kiv::System::Nm
