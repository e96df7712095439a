#include "ServiceRegistry.h"
#include "TulClientImpl.h"
#include "TulServer.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceProxy.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kiv::System::Tul
{
using Internal::GetServiceRegistry;
using Internal::TulServer;

namespace
{
struct Transport
{
    /// Serialises what starts or stops the server: PublishService, Configure, Shutdown. Held while the
    /// server's threads are joined, so never taken on a server thread's way.
    std::mutex lifecycleMutex;
    /// Guards the fields below; held only briefly.
    std::mutex mutex;
    TulSettings settings;
    std::unique_ptr<TulServer> server;
    /// The working connection to each provider.
    std::map<std::string, TulClient*> clients;
    /// A duplicate of each working connection's socket, to see that its provider has gone without
    /// touching the client's own descriptor, which the client may close at any time.
    std::map<TulClient*, int> watchFds;
    /// Every connection ever made: a proxy refers to its client by reference and may outlive Shutdown, so
    /// a client object stays, without socket or buffers, until the process ends.
    std::vector<std::unique_ptr<TulClient>> allClients;
    /// While Shutdown runs, no new connection is made (a service call still running may ask for one).
    bool closing = false;
    pid_t serverPid = 0;
};

// Apart from the settings, since every message that carries a payload reads it.
std::atomic<std::size_t> maxPayloadMemory{TulSettings{}.maxPayloadMemory};

// Never destroyed, like the registry, and for the same reason.
Transport& GetTransport()
{
    static auto* transport = new Transport;
    return *transport;
}

/// A process that ends without Shutdown leaves no endpoint files behind; its threads are left to the
/// end of the process. Only the process that made them removes them, not a child that forked and exits.
void RemoveEndpointsAtExit()
{
    Transport& transport = GetTransport();
    std::unique_lock<std::mutex> lock(transport.mutex, std::try_to_lock);
    if (lock.owns_lock() && transport.server != nullptr && transport.serverPid == getpid())
    {
        transport.server->RemoveEndpointFiles();
    }
}

/// Whether this process serves the other end of `fd`: a provider that it is publishing just now.
bool IsServedHere(int fd)
{
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && peer.pid == getpid();
}

/// Lets go of the connections that failed or whose provider has gone (the peer hung up), so that a process
/// that left costs no descriptor here and the next call to its provider connects anew. The client objects
/// stay, without socket or buffers: proxies may still refer to them. Under the transport's mutex.
void DropDeadClients(Transport& transport)
{
    for (auto entry = transport.clients.begin(); entry != transport.clients.end();)
    {
        TulClient* client = entry->second;
        const auto watch = transport.watchFds.find(client);
        pollfd peer{watch != transport.watchFds.end() ? watch->second : -1, POLLRDHUP, 0};
        const bool hungUp = peer.fd >= 0 && poll(&peer, 1, 0) > 0 && peer.revents != 0;
        if (!client->IsBroken() && !hungUp)
        {
            ++entry;
            continue;
        }
        Internal::TulClientAccess::Get(*client).Close("the provider has gone");
        if (watch != transport.watchFds.end())
        {
            close(watch->second);
            transport.watchFds.erase(watch);
        }
        entry = transport.clients.erase(entry);
    }
}

/// The working client for `providerName`, connected now if there is none; null if it can't be reached.
/// `fresh` tells whether it was made now.
TulClient* GetClient(const String& providerName, bool& fresh)
{
    Transport& transport = GetTransport();
    TulSettings settings;
    {
        std::lock_guard<std::mutex> lock(transport.mutex);
        if (transport.closing)
        {
            return nullptr;
        }
        DropDeadClients(transport);
        const auto found = transport.clients.find(providerName);
        if (found != transport.clients.end() && !found->second->IsBroken())
        {
            fresh = false;
            return found->second;
        }
        settings = transport.settings;
    }
    // Connected unlocked, since the wait may be long; a client made meanwhile by another thread wins.
    const int fd = Internal::Connect(settings, providerName);
    if (fd < 0 || (!settings.marshalLocalCalls && IsServedHere(fd)))
    {
        if (fd >= 0)
        {
            close(fd);
        }
        return nullptr;
    }
    const int watchFd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    auto client =
        Internal::TulClientAccess::Make(std::make_unique<TulClient::Impl>(providerName, fd, settings));
    std::lock_guard<std::mutex> lock(transport.mutex);
    if (transport.closing)
    {
        if (watchFd >= 0)
        {
            close(watchFd);
        }
        return nullptr;
    }
    TulClient*& slot = transport.clients[providerName];
    if (slot != nullptr && !slot->IsBroken())
    {
        if (watchFd >= 0)
        {
            close(watchFd);
        }
        fresh = false;
        return slot;
    }
    if (slot != nullptr)
    {
        const auto watch = transport.watchFds.find(slot);
        if (watch != transport.watchFds.end())
        {
            close(watch->second);
            transport.watchFds.erase(watch);
        }
    }
    transport.allClients.push_back(std::move(client));
    slot = transport.allClients.back().get();
    if (watchFd >= 0)
    {
        transport.watchFds[slot] = watchFd;
    }
    fresh = true;
    return slot;
}

ITulService* GetRemoteService(const String& providerName, const String& serviceName,
                              ITulServiceProxyFactory& proxyFactory)
{
    // A provider that is up but hasn't published the service yet may be a process in the middle of its
    // set-up, publishing one service after another: it is asked again for a moment. A moment, not the
    // whole connect wait, since a service that is really missing must not stall the caller for long.
    const auto deadline = std::chrono::steady_clock::now() +
                          std::min<std::chrono::milliseconds>(ServiceManager::GetSettings().connectWait,
                                                              std::chrono::seconds(1));
    // A connection that was fine when last used may have lost its provider since: then one new try.
    bool reconnected = false;
    for (;;)
    {
        bool fresh = false;
        TulClient* client = GetClient(providerName, fresh);
        if (client == nullptr)
        {
            return nullptr;
        }
        std::pair<std::uint16_t, std::uint16_t> handles;
        try
        {
            handles = Internal::TulClientAccess::Get(*client).Resolve(serviceName);
        }
        catch (const Exception&)
        {
            if (client->IsBroken())
            {
                if (fresh || reconnected)
                {
                    return nullptr;
                }
                reconnected = true;
                continue;
            }
            if (std::chrono::steady_clock::now() >= deadline)
            {
                return nullptr;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        ITulServiceProxy* proxy = proxyFactory.CreateServiceProxy(handles.first, handles.second, *client);
        auto* service = dynamic_cast<ITulService*>(proxy);
        if (service == nullptr)
        {
            delete proxy;
        }
        return service;
    }
}

/// In this process the caller gets the service object itself; a guarded one checks each call against the
/// identity of the calling thread's caller, which here is this process.
ITulService* GetLocalService(const char* providerName, const char* serviceName)
{
    const auto publication = GetServiceRegistry().Find(providerName, serviceName);
    return publication ? publication->factory->CreateServiceImpl(providerName, publication->authorizator)
                       : nullptr;
}

void StopTransport(bool withAuthorizator) noexcept
{
    Transport& transport = GetTransport();
    std::lock_guard<std::mutex> lifecycle(transport.lifecycleMutex);
    std::unique_ptr<TulServer> server;
    std::vector<TulClient*> open;
    {
        std::lock_guard<std::mutex> lock(transport.mutex);
        transport.closing = true;
        server = std::move(transport.server);
        for (const auto& [provider, client] : transport.clients)
        {
            open.push_back(client);
        }
        transport.clients.clear();
        for (const auto& [client, fd] : transport.watchFds)
        {
            close(fd);
        }
        transport.watchFds.clear();
    }
    // Clients first: a server thread in a call to another process is woken by it.
    for (TulClient* client : open)
    {
        Internal::TulClientAccess::Get(*client).Close("the service manager was shut down");
    }
    GetServiceRegistry().Clear(withAuthorizator);
    server.reset();
    std::lock_guard<std::mutex> lock(transport.mutex);
    transport.closing = false;
}
}  // namespace

void ServiceManager::Configure(const TulSettings& settings)
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
    Transport& transport = GetTransport();
    std::lock_guard<std::mutex> lifecycle(transport.lifecycleMutex);
    std::lock_guard<std::mutex> lock(transport.mutex);
    if (transport.server != nullptr || !transport.clients.empty())
    {
        throw InvalidOperationException(
            "The settings cannot change while endpoints or connections are open; call Shutdown first");
    }
    transport.settings = settings;
    maxPayloadMemory.store(settings.maxPayloadMemory, std::memory_order_relaxed);
}

std::size_t ServiceManager::GetMaxPayloadMemory() noexcept
{
    return maxPayloadMemory.load(std::memory_order_relaxed);
}

TulSettings ServiceManager::GetSettings()
{
    Transport& transport = GetTransport();
    std::lock_guard<std::mutex> lock(transport.mutex);
    return transport.settings;
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
    Transport& transport = GetTransport();
    std::lock_guard<std::mutex> lifecycle(transport.lifecycleMutex);
    TulServer* server = nullptr;
    {
        std::lock_guard<std::mutex> lock(transport.mutex);
        if (transport.server == nullptr)
        {
            transport.server = std::make_unique<TulServer>(transport.settings);
            if (transport.serverPid == 0)
            {
                std::atexit(RemoveEndpointsAtExit);
            }
            transport.serverPid = getpid();
        }
        server = transport.server.get();
    }
    if (!server->Serves(providerName))
    {
        try
        {
            server->AddEndpoint(providerName);
        }
        catch (...)
        {
            // A server that serves nothing would only keep the settings from changing.
            if (!server->HasEndpoints())
            {
                std::unique_ptr<TulServer> idle;
                {
                    std::lock_guard<std::mutex> lock(transport.mutex);
                    idle = std::move(transport.server);
                }
            }
            throw;
        }
    }
    GetServiceRegistry().Publish(providerName, serviceName, factory);
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
    Internal::ServiceRegistry& registry = GetServiceRegistry();
    const bool direct = !GetSettings().marshalLocalCalls;
    if (direct && registry.HasProvider(providerName))
    {
        return GetLocalService(providerName, serviceName);
    }
    ITulService* service = GetRemoteService(providerName, serviceName, proxyFactory);
    // No connection is made to this process's own endpoint: the provider was published here meanwhile.
    return service == nullptr && direct ? GetLocalService(providerName, serviceName) : service;
}

ITulAuthorizator* ServiceManager::SetAuthorizator(ITulAuthorizator* authorizator) noexcept
{
    return GetServiceRegistry().SetAuthorizator(authorizator);
}

ITulAuthorizator* ServiceManager::SetInternalAuthorizator(ITulAuthorizator* authorizator) noexcept
{
    return GetServiceRegistry().SetInternalAuthorizator(authorizator);
}

void ServiceManager::Shutdown() noexcept
{
    StopTransport(false);
}

void ServiceManager::Reset() noexcept
{
    StopTransport(true);
}
}  // namespace Kiv::System::Tul
