#include "WireText.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/TulExceptionRegistry.h>

#include <exception>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

namespace Kiv::System::Tul
{
namespace
{
constexpr const char* unknownFailure = "Unknown exception in a remote operation";

template <class E>
std::unique_ptr<Exception> MakeException(const String& message)
{
    return std::make_unique<E>(Exception::Verbatim{}, message);
}

struct Registry
{
    template <class... E>
    void Add()
    {
        ((factories[Commons::ReadableTypeName(typeid(E))] = &MakeException<E>), ...);
    }

    std::shared_mutex mutex;
    std::map<std::string, TulExceptionRegistry::Factory> factories;
};

Registry& GetRegistry()
{
    // Never destroyed, like the service registry, for calls during static destruction.
    static Registry* registry = []
    {
        auto* made = new Registry;
        made->Add<Exception, ArgumentException, ArgumentOutOfRangeException, InvalidOperationException,
                  InvalidCastException, NotSupportedException, NotImplementedException,
                  UnauthorizedAccessException, CommunicationException, XmlException>();
        return made;
    }();
    return *registry;
}
}  // namespace

void TulExceptionRegistry::Register(const String& typeName, Factory factory)
{
    if (factory == nullptr)
    {
        throw ArgumentException::Create("factory", "null", "An exception class needs a factory");
    }
    Registry& registry = GetRegistry();
    std::unique_lock<std::shared_mutex> lock(registry.mutex);
    registry.factories[typeName] = factory;
}

std::unique_ptr<Exception> TulExceptionRegistry::Create(const String& typeName, const String& message)
{
    Factory factory = &MakeException<Exception>;
    {
        Registry& registry = GetRegistry();
        std::shared_lock<std::shared_mutex> lock(registry.mutex);
        if (const auto found = registry.factories.find(typeName); found != registry.factories.end())
        {
            factory = found->second;
        }
    }
    return factory(message);
}

void TulExceptionRegistry::Write(TulWriter& writer, std::exception_ptr error)
{
    std::vector<std::pair<String, String>> levels;
    try
    {
        std::rethrow_exception(error);
    }
    catch (const Exception& e)
    {
        for (const Exception* level = &e; level != nullptr && levels.size() < MaxLevels;
             level = level->GetInnerException())
        {
            levels.emplace_back(level->GetTypeName(), level->GetMessage());
        }
    }
    catch (const std::exception& e)
    {
        levels.emplace_back(Exception().GetTypeName(), e.what());
    }
    catch (...)
    {
        levels.emplace_back(Exception().GetTypeName(), unknownFailure);
    }
    writer.WriteArrayLength(static_cast<std::uint32_t>(levels.size()));
    for (const auto& [typeName, message] : levels)
    {
        Internal::WriteText(writer, typeName);
        Internal::WriteText(writer, message);
    }
}

void TulExceptionRegistry::Throw(TulReader& reader)
{
    const std::uint32_t count = reader.ReadArrayLength();
    if (count == 0 || count > MaxLevels)
    {
        throw CommunicationException("Malformed failure report: {0} levels", count);
    }
    std::vector<std::pair<String, String>> levels;
    levels.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i)
    {
        String typeName = Internal::ReadText(reader);
        levels.emplace_back(std::move(typeName), Internal::ReadText(reader));
    }
    // Built from the innermost out, since an outer one keeps a copy of its inner one.
    std::unique_ptr<Exception> chain;
    for (auto level = levels.rbegin(); level != levels.rend(); ++level)
    {
        std::unique_ptr<Exception> outer = Create(level->first, level->second);
        if (chain != nullptr)
        {
            outer->SetInnerException(*chain);
        }
        chain = std::move(outer);
    }
    chain->Rethrow();
    std::terminate();  // not reached; the compiler doesn't take a virtual [[noreturn]] for granted
}
}  // namespace Kiv::System::Tul
