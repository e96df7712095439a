#include <Kiv/Exception.h>
#include <Kiv/TypeNames.h>

#include <boost/algorithm/string/replace.hpp>

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace Kiv::System::Commons
{
String Demangle(const char* mangledName)
{
    if (mangledName == nullptr)
    {
        return String();
    }
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(abi::__cxa_demangle(mangledName, nullptr, nullptr, &status),
                                                     &std::free);
    if (status != 0 || demangled == nullptr)
    {
        return String();
    }
    return String(demangled.get());
}

String ReadableTypeName(const std::type_info& type)
{
    String name = Demangle(type.name());
    if (name.empty())
    {
        throw Exception("Demangling of type name '{0}' failed.", type.name());
    }
    boost::algorithm::replace_all(name, "class ", "");
    boost::algorithm::replace_all(name, "struct ", "");
    boost::algorithm::replace_all(name, "enum ", "");
    return name;
}

String DottedTypeName(const std::type_info& type)
{
    String name = ReadableTypeName(type);
    boost::algorithm::replace_all(name, "::", ".");
    return name;
}
}  // namespace Kiv::System::Commons
