#include "Transport.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>

namespace Kiv::System::Tul
{
using Internal::Transport;

namespace
{
/// The transport in force, and what outlasts it: the installed policies. A transport that stops is
/// replaced at once by a new one with the same settings; one that is idle may be replaced by one with
/// other settings.
class Face
{
public:
    Face() { std::atexit(RemoveEndpointsAtExit); }

    /// The transport in force, for one operation; it may stop meanwhile, and then refuses.
    std::shared_ptr<Transport> Get() const { return std::atomic_load(&transport); }

    /// Puts a new transport with `settings` in place of the one in force, which is stopped first. Under
    /// the lifecycle mutex.
    void Replace(const TulSettings& settings)
    {
        Get()->Stop();
        std::atomic_store(&transport, std::make_shared<Transport>(settings, policies));
        maxPayloadMemory.store(settings.maxPayloadMemory, std::memory_order_relaxed);
    }

    /// Serialises what starts or stops a server: PublishService, Configure, Shutdown. Held while the
    /// server's threads are joined, so never taken on a server thread's way.
    std::mutex lifecycleMutex;
    Internal::Policies policies;
    /// Apart from the settings, since every message that carries a payload reads it.
    std::atomic<std::size_t> maxPayloadMemory{TulSettings{}.maxPayloadMemory};

private:
    /// A process that ends without Shutdown leaves no endpoint files behind; its threads are left to the
    /// end of the process, since they may be in calls into objects that are gone by then.
    static void RemoveEndpointsAtExit();

    std::shared_ptr<Transport> transport = std::make_shared<Transport>(TulSettings{}, policies);
};

/// Never destroyed, so that a service published or asked for during the static destruction of another
/// library finds it.
Face& GetFace()
{
    static auto* face = new Face;
    return *face;
}

void Face::RemoveEndpointsAtExit()
{
    GetFace().Get()->RemoveEndpointFilesAtExit();
}

void Validate(const TulSettings& settings)
{
    if (settings.systemName.empty())
    {
        throw ArgumentException::Create("systemName", "", "A system needs a name");
    }
    if (settings.endpointDirectory.empty())
    {
        throw ArgumentException::Create("endpointDirectory", "", "Endpoints need a directory");
    }
    if (settings.connectWait.count() < 0 || settings.callTimeLimit.count() < 0)
    {
        throw ArgumentException::Create("settings",
                                        settings.connectWait.count() < 0 ? "connectWait" : "callTimeLimit",
                                        "A wait or time limit cannot be negative");
    }
    if (settings.maxConnectionsPerUid == 0)
    {
        throw ArgumentException::Create("maxConnectionsPerUid", 0,
                                        "Every user needs one connection at least");
    }
    if (settings.maxFrameSize < 64 || settings.maxFrameSize > UINT32_MAX)
    {
        throw ArgumentException::Create("maxFrameSize", settings.maxFrameSize,
                                        "The maximum frame size must be at least 64 bytes and fit 32 bits");
    }
    if (settings.maxPayloadMemory == 0)
    {
        throw ArgumentException::Create("maxPayloadMemory", settings.maxPayloadMemory,
                                        "A payload needs some memory: the bound must not be 0");
    }
}
}  // namespace

void ServiceManager::Configure(const TulSettings& settings)
{
    Validate(settings);
    Face& face = GetFace();
    std::lock_guard<std::mutex> lifecycle(face.lifecycleMutex);
    if (!face.Get()->IsIdle())
    {
        throw InvalidOperationException(
            "The settings cannot change while endpoints or connections are open; call Shutdown first");
    }
    face.Replace(settings);
}

std::size_t ServiceManager::GetMaxPayloadMemory() noexcept
{
    return GetFace().maxPayloadMemory.load(std::memory_order_relaxed);
}

TulSettings ServiceManager::GetSettings()
{
    return GetFace().Get()->GetSettings();
}

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
    Face& face = GetFace();
    std::lock_guard<std::mutex> lifecycle(face.lifecycleMutex);
    face.Get()->Publish(providerName, serviceName, factory);
}

ITulService* ServiceManager::GetService(const char* providerName, ITulServiceProxyFactory& proxyFactory)
{
    if (providerName == nullptr)
    {
        throw ArgumentException::Create("providerName", "null",
                                        "A service is asked for by its provider name");
    }
    const char* serviceName = proxyFactory.GetServiceName();
    return serviceName != nullptr ? GetFace().Get()->GetService(providerName, serviceName, proxyFactory)
                                  : nullptr;
}

ITulAuthorizator* ServiceManager::SetAuthorizator(ITulAuthorizator* authorizator) noexcept
{
    return GetFace().policies.authorizator.exchange(authorizator);
}

ITulAuthorizator* ServiceManager::SetInternalAuthorizator(ITulAuthorizator* authorizator) noexcept
{
    return GetFace().policies.internalAuthorizator.exchange(authorizator);
}

void ServiceManager::Shutdown() noexcept
{
    Face& face = GetFace();
    std::lock_guard<std::mutex> lifecycle(face.lifecycleMutex);
    face.Replace(face.Get()->GetSettings());
}

void Testing::UseNewTransport(const TulSettings& settings)
{
    Validate(settings);
    Face& face = GetFace();
    std::lock_guard<std::mutex> lifecycle(face.lifecycleMutex);
    face.Replace(settings);
    face.policies.authorizator = nullptr;
    face.policies.internalAuthorizator = nullptr;
}
}  // namespace Kiv::System::Tul
