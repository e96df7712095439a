#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <typeinfo>

namespace Kiv::System::Commons
{
/// Demangles a type name with the language runtime; empty where that fails.
KIV_API String Demangle(const char* mangledName);

/// The readable name of a type: demangled, with "class ", "struct " and "enum " cut out. Raises
/// Exception "Demangling of type name '{0}' failed." when the runtime cannot demangle it.
KIV_API String ReadableTypeName(const std::type_info& type);

/// The logger-name form of a readable type name: "::" becomes ".".
KIV_API String DottedTypeName(const std::type_info& type);
}  // namespace Kiv::System::Commons
