#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>

namespace Kiv::System::Commons
{
template <>
AppDomain* Singleton<AppDomain>::pInstance = nullptr;

AppDomain::AppDomain(String name) : name(std::move(name)) {}

AppDomain::~AppDomain() = default;

AppDomain& AppDomain::Create(const String& name)
{
    if (Singleton<AppDomain>::pInstance != nullptr)
    {
        throw InvalidOperationException("An AppDomain exists already: '{0}'", Singleton<AppDomain>::pInstance->name);
    }
    Singleton<AppDomain>::pInstance = new AppDomain(name);
    return *Singleton<AppDomain>::pInstance;
}

void AppDomain::Dispose() noexcept
{
    AppDomain* instance = Singleton<AppDomain>::pInstance;
    Singleton<AppDomain>::pInstance = nullptr;
    delete instance;
}
}  // namespace Kiv::System::Commons
