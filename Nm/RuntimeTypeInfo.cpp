#include <Nm/RuntimeTypeInfo.h>

#include <Kiv/Exception.h>
#include <Kiv/TypeNames.h>

#include <boost/algorithm/string/replace.hpp>

namespace Kiv
{
String RuntimeTypeInfo::DemangleSymbol(const char* mangledName)
{
    return System::Commons::Demangle(mangledName);
}

String RuntimeTypeInfo::GetReadableTypeName(const char* mangledName)
{
    String name = DemangleSymbol(mangledName);
    if (name.empty())
    {
        throw Exception("Demangling of type name '{0}' failed.",
                        String(mangledName != nullptr ? mangledName : ""));
    }
    boost::algorithm::replace_all(name, "class ", "");
    boost::algorithm::replace_all(name, "struct ", "");
    boost::algorithm::replace_all(name, "enum ", "");
    return name;
}
}  // namespace Kiv
