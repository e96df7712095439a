#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>

namespace Kiv::System::Tul
{
namespace
{
struct Registry
{
    std::shared_mutex mutex;
    /// Keyed by provider name and service name.
    std::map<std::pair<std::string, std::string>, ITulServiceFactory*> factories;
    ITulAuthorizator* authorizator = nullptr;
};

// Built at the first use, and never destroyed, so that a publication made or asked for during static
// initialisation or destruction of another library finds it.
Registry& GetRegistry()
{
    static auto* registry = new Registry;
    return *registry;
}
}  // namespace

void ServiceManager::PublishService(const char* providerName, const char* serviceName,
                                    ITulServiceFactory& factory)
{
    if (providerName == nullptr)
    {
        throw ArgumentException::Create("providerName", "null", "A service needs a provider name");
    }
    if (serviceName == nullptr || *serviceName == '\0')
    {
        throw ArgumentException::Create("serviceName", serviceName == nullptr ? "null" : "",
                                        "A service needs a service name");
    }
    Registry& registry = GetRegistry();
    std::unique_lock<std::shared_mutex> lock(registry.mutex);
    registry.factories[{providerName, serviceName}] = &factory;
}

ITulService* ServiceManager::GetService(const char* providerName, ITulServiceProxyFactory& proxyFactory)
{
    if (providerName == nullptr)
    {
        throw ArgumentException::Create("providerName", "null",
                                        "A service is asked for by its provider name");
    }
    const char* serviceName = proxyFactory.GetServiceName();
    if (serviceName == nullptr)
    {
        return nullptr;
    }
    Registry& registry = GetRegistry();
    ITulServiceFactory* factory = nullptr;
    ITulAuthorizator* authorizator = nullptr;
    {
        std::shared_lock<std::shared_mutex> lock(registry.mutex);
        const auto found = registry.factories.find({providerName, serviceName});
        if (found == registry.factories.end())
        {
            return nullptr;
        }
        factory = found->second;
        authorizator = registry.authorizator;
    }
    // The factory runs unlocked: it may take its time or publish or fetch services itself. In this process
    // the caller gets the service object directly; a guarded one checks each call against the identity of
    // the calling thread's caller, which here is this process.
    return factory->CreateServiceImpl(providerName, authorizator);
}

ITulAuthorizator* ServiceManager::SetAuthorizator(ITulAuthorizator* authorizator) noexcept
{
    Registry& registry = GetRegistry();
    std::unique_lock<std::shared_mutex> lock(registry.mutex);
    ITulAuthorizator* previous = registry.authorizator;
    registry.authorizator = authorizator;
    return previous;
}

void ServiceManager::Reset() noexcept
{
    Registry& registry = GetRegistry();
    std::unique_lock<std::shared_mutex> lock(registry.mutex);
    registry.factories.clear();
    registry.authorizator = nullptr;
}
}  // namespace Kiv::System::Tul
