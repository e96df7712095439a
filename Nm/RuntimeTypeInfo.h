#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

namespace Kiv
{
/// Access to the names that the language runtime gives to types.
class KIV_API RuntimeTypeInfo
{
public:
    /// The demangled form of a mangled type name; empty where demangling fails.
    static String DemangleSymbol(const char* mangledName);

    /// The readable form of a mangled type name: demangled, then every "class ", "struct " and "enum "
    /// cut out, in this order. The cut is a plain substring search and also hits the end of a longer
    /// word; the result must stay identical between processes, so it is kept that simple.
    /// Raises Exception "Demangling of type name '{0}' failed." when demangling gives nothing.
    static String GetReadableTypeName(const char* mangledName);
};
}  // namespace Kiv
