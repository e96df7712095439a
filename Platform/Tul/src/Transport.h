#pragma once

#include "ClientPool.h"
#include "ServiceRegistry.h"

#include <Kiv/System/Tul/TulSettings.h>

#include <memory>
#include <mutex>

#include <sys/types.h>

namespace Kiv::System::Tul
{
class ITulService;
class ITulServiceFactory;
class ITulServiceProxyFactory;
}  // namespace Kiv::System::Tul

namespace Kiv::System::Tul::Internal
{
class TulServer;

/// What a process offers and uses of the remote-service layer for one set of settings: the publications,
/// the server that serves them at the providers' endpoints (started by the first publication), and the
/// connections to the providers that it calls. It serves until Stop, and once stopped for good: a new
/// transport takes its place (see ServiceManager).
class Transport
{
public:
    Transport(const TulSettings& settings, const Policies& policies);
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    /// Stops.
    ~Transport();

    const TulSettings& GetSettings() const noexcept { return settings; }
    /// Whether it has neither endpoints nor connections, so that one with other settings may replace it.
    bool IsIdle() const;

    /// See ServiceManager::PublishService; raises InvalidOperationException once stopped.
    void Publish(const String& providerName, const String& serviceName, ITulServiceFactory& factory);
    /// See ServiceManager::GetService; null once stopped.
    ITulService* GetService(const String& providerName, const String& serviceName,
                            ITulServiceProxyFactory& proxyFactory);

    /// Withdraws every publication, breaks every connection and stops the server. Waits for the calls
    /// that server threads are serving, so such a call must not stop its own transport.
    void Stop() noexcept;
    /// Removes the endpoint files of a server that this very process started, and nothing else (its
    /// threads are left to the end of the process), unless a publication or a stop is under way.
    void RemoveEndpointFilesAtExit() noexcept;

private:
    ITulService* GetLocalService(const String& providerName, const String& serviceName) const;
    ITulService* GetRemoteService(const String& providerName, const String& serviceName,
                                  ITulServiceProxyFactory& proxyFactory);

    const TulSettings settings;
    ServiceRegistry registry;
    ClientPool clients;
    /// Serialises what starts, extends or stops the server. Held while its threads are joined, so never
    /// taken on a server thread's way.
    mutable std::mutex serverMutex;
    std::unique_ptr<TulServer> server;
    /// The process that started the server: a child that forked off doesn't remove its endpoints.
    pid_t serverPid = 0;
    bool stopped = false;
};
}  // namespace Kiv::System::Tul::Internal
