#include "Transport.h"

#include "TulClientImpl.h"
#include "TulServer.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceProxy.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>
#include <utility>

#include <unistd.h>

namespace Kiv::System::Tul::Internal
{
namespace
{
using Handles = std::pair<std::uint16_t, std::uint16_t>;

/// The handles of `serviceName` on `client`, asked for again while the provider doesn't publish it (yet)
/// until `deadline`; none once the connection is broken or the deadline has passed.
std::optional<Handles> WaitForPublication(TulClient& client, const String& serviceName,
                                          Clock::time_point deadline)
{
    for (;;)
    {
        try
        {
            return TulClientAccess::Get(client).Take().Resolve(serviceName);
        }
        catch (const Exception&)
        {
            if (client.IsBroken() || Clock::now() >= deadline)
            {
                return std::nullopt;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}
}  // namespace

Transport::Transport(const TulSettings& settings, const Policies& policies)
    : settings(settings), registry(policies), clients(this->settings)
{
}

Transport::~Transport()
{
    Stop();
}

bool Transport::IsIdle() const
{
    std::lock_guard<std::mutex> lock(serverMutex);
    return server == nullptr && clients.IsEmpty();
}

void Transport::Publish(const String& providerName, const String& serviceName, ITulServiceFactory& factory)
{
    std::lock_guard<std::mutex> lock(serverMutex);
    if (stopped)
    {
        throw InvalidOperationException(
            "Service '{0}' of provider '{1}' can't be published: the transport is stopped", serviceName,
            providerName);
    }
    if (server == nullptr)
    {
        server = std::make_unique<TulServer>(settings, registry);
        serverPid = getpid();
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
                server.reset();
            }
            throw;
        }
    }
    registry.Publish(providerName, serviceName, factory);
}

ITulService* Transport::GetService(const String& providerName, const String& serviceName,
                                   ITulServiceProxyFactory& proxyFactory)
{
    const bool direct = !settings.marshalLocalCalls;
    if (direct && registry.HasProvider(providerName))
    {
        return GetLocalService(providerName, serviceName);
    }
    ITulService* service = GetRemoteService(providerName, serviceName, proxyFactory);
    // No connection is made to this process's own endpoint: the provider was published here meanwhile.
    return service == nullptr && direct ? GetLocalService(providerName, serviceName) : service;
}

/// In this process the caller gets the service object itself; a guarded one checks each call against the
/// identity of the calling thread's caller, which here is this process.
ITulService* Transport::GetLocalService(const String& providerName, const String& serviceName) const
{
    const auto publication = registry.Find(providerName, serviceName);
    return publication
               ? publication->factory->CreateServiceImpl(providerName.c_str(), publication->authorizator)
               : nullptr;
}

ITulService* Transport::GetRemoteService(const String& providerName, const String& serviceName,
                                         ITulServiceProxyFactory& proxyFactory)
{
    // A provider that is up but hasn't published the service yet may be a process in the middle of its
    // set-up, publishing one service after another: it is asked again for a moment. A moment, not the
    // whole connect wait, since a service that is really missing must not stall the caller for long.
    const auto deadline =
        Clock::now() + std::min<std::chrono::milliseconds>(settings.connectWait, std::chrono::seconds(1));
    std::shared_ptr<TulClient> client = clients.Find(providerName);
    std::optional<Handles> handles;
    if (client != nullptr)
    {
        handles = WaitForPublication(*client, serviceName, deadline);
    }
    if (!handles && (client == nullptr || client->IsBroken()))
    {
        // None yet, or the one there has lost its provider since it was last used: one new connection.
        client = clients.Connect(providerName);
        if (client != nullptr)
        {
            handles = WaitForPublication(*client, serviceName, deadline);
        }
    }
    if (!handles)
    {
        return nullptr;
    }
    ITulServiceProxy* proxy = proxyFactory.CreateServiceProxy(handles->first, handles->second, *client);
    auto* service = dynamic_cast<ITulService*>(proxy);
    if (service == nullptr)
    {
        delete proxy;
        return nullptr;
    }
    proxy->connection = std::move(client);
    return service;
}

void Transport::Stop() noexcept
{
    std::lock_guard<std::mutex> lock(serverMutex);
    stopped = true;
    // Clients first: a server thread in a call to another process is woken by it.
    clients.Close("the service manager was shut down");
    registry.Clear();
    server.reset();
}

void Transport::RemoveEndpointFilesAtExit() noexcept
{
    std::unique_lock<std::mutex> lock(serverMutex, std::try_to_lock);
    if (lock.owns_lock() && server != nullptr && serverPid == getpid())
    {
        server->RemoveEndpointFiles();
    }
}
}  // namespace Kiv::System::Tul::Internal
