#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/Singleton.h>

#include <shared_mutex>
#include <typeindex>
#include <unordered_map>

namespace Kiv::System::Commons
{
/// The per-process root object: a name, unique within one running system, and the table of the
/// process's singletons by type under a reader-writer lock. The table does not own its instances.
class KIV_API AppDomain
{
public:
    using SingletonTable = std::unordered_map<std::type_index, void*>;

    explicit AppDomain(String name);
    AppDomain(const AppDomain&) = delete;
    AppDomain& operator=(const AppDomain&) = delete;
    ~AppDomain();

    const String& GetName() const noexcept { return name; }

    /// Readers take it shared, writers exclusive; it guards the singleton table only.
    std::shared_mutex& GetSingletonLock() noexcept { return singletonLock; }
    /// The table itself; hold GetSingletonLock() while touching it.
    SingletonTable& GetSingletonTable() noexcept { return singletons; }

    /// Makes the process's AppDomain. Raises InvalidOperationException if one exists.
    static AppDomain& Create(const String& name);
    /// Destroys the process's AppDomain; does nothing without one.
    static void Dispose() noexcept;

private:
    String name;
    std::shared_mutex singletonLock;
    SingletonTable singletons;
};

// One pointer for the whole process, defined in the library so that every shared object shares it.
template <>
KIV_API AppDomain* Singleton<AppDomain>::pInstance;
}  // namespace Kiv::System::Commons
