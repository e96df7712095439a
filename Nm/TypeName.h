#pragma once

#include <Nm/RuntimeTypeInfo.h>

#include <Kiv/BasicString.h>

#include <fmt/ostream.h>

#include <ostream>
#include <typeinfo>

namespace Kiv
{
/// The readable name of a type, as it stands in messages and as payload types are known between
/// processes, e.g. "Kiv::System::Nm::Severity".
template <class T>
class TypeName
{
public:
    /// The name of T from the runtime's type information.
    TypeName() : TypeName(typeid(T).name(), false) {}

    /// A common name is taken over verbatim; any other name is read as mangled and made readable.
    TypeName(const char* name, bool isCommonName)
        : name(isCommonName ? String(name != nullptr ? name : "")
                            : RuntimeTypeInfo::GetReadableTypeName(name)),
          isCommonName(isCommonName)
    {
    }

    const String& GetName() const noexcept { return name; }
    bool IsCommonName() const noexcept { return isCommonName; }

private:
    String name;
    bool isCommonName;
};

template <class T>
std::ostream& operator<<(std::ostream& out, const TypeName<T>& typeName)
{
    return out << typeName.GetName();
}
}  // namespace Kiv

template <class T>
struct fmt::formatter<Kiv::TypeName<T>> : fmt::ostream_formatter
{
};
