#include <Nm/Severity.h>

namespace Kiv
{
template <>
const EnumDictionary<System::Nm::Severity>& EnumDictionary<System::Nm::Severity>::GetInstance()
{
    using System::Nm::Severity;
    // The eighth pair repeats code 0 and is dropped by the map, which keeps "Internal".
    static const EnumDictionary instance({{Severity::Internal, "Internal"},
                                          {Severity::Info, "Info"},
                                          {Severity::Warning, "Warning"},
                                          {Severity::Error, "Error"},
                                          {Severity::Critical, "Critical"},
                                          {Severity::Fatal, "Fatal"},
                                          {Severity::Emerge, "Emerge"},
                                          {Severity::Default, "Default"}},
                                         "");
    return instance;
}
}  // namespace Kiv

namespace Kiv::System::Nm
{
std::ostream& operator<<(std::ostream& out, Severity severity)
{
    return EnumDictionary<Severity>::WriteEnumString(out, severity);
}

std::istream& operator>>(std::istream& in, Severity& severity)
{
    return EnumDictionary<Severity>::ReadEnumString(in, severity);
}
}  // namespace Kiv::System::Nm
