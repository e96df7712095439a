#pragma once

#include <Nm/TypeName.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exception.h>
#include <Kiv/Singleton.h>

#include <mutex>
#include <shared_mutex>
#include <typeindex>
#include <typeinfo>
#include <utility>

namespace Kiv::System::Nm
{
/// One instance of T per process, kept in the table of the process's AppDomain and found by type from
/// anywhere. The creator owns the instance: the table only points to it.
///
/// The AppDomain's lock guards the table alone. No lock is held while T is constructed or destroyed, so a
/// constructor or destructor may itself create, find or dispose other singletons. A T with a private
/// constructor or destructor befriends AppDomainSingleton<T>.
///
/// All failures raise Kiv::Exception. Without an AppDomain every operation but IsCreated raises
/// "Singleton instance of type '...AppDomain' was not created yet!".
template <class T>
class AppDomainSingleton
{
public:
    /// Constructs T from `args` and enters it. Raises if an instance is there already or if another thread
    /// entered one while this one was being built; in that case the instance built here is left alone.
    /// A constructor that throws leaves no entry behind.
    template <class... Args>
    static void CreateInstance(Args&&... args)
    {
        {
            Commons::AppDomain& domain = GetAppDomain();
            if (Find(domain) != nullptr)
            {
                throw Exception("AppDomain Singleton instance of type '{0}' was created yet!", GetTypeName());
            }
        }
        T* instance = new T(std::forward<Args>(args)...);
        Commons::AppDomain& domain = GetAppDomain();
        std::unique_lock<std::shared_mutex> lock(domain.GetSingletonLock());
        if (!domain.GetSingletonTable().emplace(std::type_index(typeid(T)), instance).second)
        {
            throw Exception("AppDomain Singleton of type '{0}' has been added yet", GetTypeName());
        }
    }

    /// The instance; raises if there is none. The entry stays while the instance's destructor runs, so the
    /// instance can still be found from its own destructor.
    static T& GetInstance()
    {
        void* instance = Find(GetAppDomain());
        // Looked up a second time, so that an entry erased meanwhile is reported rather than returned.
        if (instance == nullptr || Find(GetAppDomain()) == nullptr)
        {
            throw Exception("AppDomain Singleton instance of type '{0}' was not created yet!", GetTypeName());
        }
        return *static_cast<T*>(instance);
    }

    /// Whether an instance is entered; false without an AppDomain.
    static bool IsCreated()
    {
        Commons::AppDomain* domain = Commons::Singleton<Commons::AppDomain>::pInstance;
        return domain != nullptr && Find(*domain) != nullptr;
    }

    /// Deletes the instance, if there is one, and then removes its entry.
    static void DisposeInstance()
    {
        delete static_cast<T*>(Find(GetAppDomain()));
        Commons::AppDomain& domain = GetAppDomain();
        std::unique_lock<std::shared_mutex> lock(domain.GetSingletonLock());
        domain.GetSingletonTable().erase(std::type_index(typeid(T)));
    }

protected:
    AppDomainSingleton() = default;
    ~AppDomainSingleton() = default;

private:
    static Commons::AppDomain& GetAppDomain()
    {
        return Commons::Singleton<Commons::AppDomain>::GetInstance();
    }

    /// The entered pointer, or null for no entry or a null entry.
    static void* Find(Commons::AppDomain& domain)
    {
        std::shared_lock<std::shared_mutex> lock(domain.GetSingletonLock());
        const auto& table = domain.GetSingletonTable();
        const auto entry = table.find(std::type_index(typeid(T)));
        return entry != table.end() ? entry->second : nullptr;
    }

    static String GetTypeName() { return TypeName<T>().GetName(); }
};
}  // namespace Kiv::System::Nm
