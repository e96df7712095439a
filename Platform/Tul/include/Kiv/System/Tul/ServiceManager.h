#pragma once

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulSettings.h>

namespace Kiv::System::Tul
{
class ITulAuthorizator;
class ITulService;
class ITulServiceFactory;
class ITulServiceProxyFactory;

/// The registry of published services: names are the only address, a provider name and a service name.
/// A caller in the publishing process gets the service object itself; a caller in another process of the
/// same system gets a proxy on a connection to the provider's endpoint (see TulSettings). All operations
/// are safe to call from any thread. Shutdown waits for the calls that server threads are serving, so such
/// a call must not call it, nor Configure or PublishService while it may run.
class KIV_API ServiceManager
{
public:
    ServiceManager() = delete;

    /// Sets how this process meets others. Raises ArgumentException for an empty system name or endpoint
    /// directory, a negative wait or limit, or a maximum frame size below 64 bytes or a connection bound of
    /// 0, and InvalidOperationException while endpoints or connections are open (before the first
    /// PublishService or remote GetService, or after Shutdown, it works).
    static void Configure(const TulSettings& settings);
    static TulSettings GetSettings();
    /// TulSettings::maxPayloadMemory of the settings in force, without a lock: readers of every message
    /// ask for it.
    static std::size_t GetMaxPayloadMemory() noexcept;

    /// Makes the service of `factory` available under the two names, to this process and, through the
    /// provider's endpoint, to the others of the system. Publishing the same names again replaces the
    /// earlier publication. The factory is not owned and must outlive the publication. Raises
    /// ArgumentException for a null name, an empty service name or an endpoint path too long for a
    /// socket, InvalidOperationException when another live process serves the provider, and
    /// CommunicationException when the endpoint cannot be made.
    static void PublishService(const char* providerName, const char* serviceName,
                               ITulServiceFactory& factory);

    /// A new service object for the service that `proxyFactory` names (GetServiceName) under
    /// `providerName`, owned by the caller; null if it can't be reached. For a provider published in this
    /// process it is made by the factory's CreateServiceImpl, with the installed authorizator, and called
    /// directly (unless TulSettings::marshalLocalCalls). Otherwise it is a proxy from `proxyFactory` on the
    /// process's one connection to the provider, made within the connect wait of the settings. Raises
    /// ArgumentException for a null provider name.
    static ITulService* GetService(const char* providerName, ITulServiceProxyFactory& proxyFactory);

    /// Installs the policy handed to the factories of guarded services; null for the default one (see
    /// TulServiceAuthorizator). Not owned. Returns the one installed before.
    static ITulAuthorizator* SetAuthorizator(ITulAuthorizator* authorizator) noexcept;

    /// Installs the policy for calls from other processes to services without a security stub (the
    /// system's internal services); null for the default one, TulDefaultAuthorizator. Callers running as
    /// this process's user or as root are always granted, without asking it. A refused call is answered
    /// with UnauthorizedAccessException "Access denied to '{operation}' ..." by its header: its body is
    /// read past, never kept. Not owned. Returns the one installed before.
    static ITulAuthorizator* SetInternalAuthorizator(ITulAuthorizator* authorizator) noexcept;

    /// The host's last call: withdraws every publication, stops the server threads, closes every
    /// connection and removes this process's endpoints. Proxies still held fail from now on with
    /// CommunicationException. Settings and authorizators stay, so a new setup can follow.
    static void Shutdown() noexcept;
};
}  // namespace Kiv::System::Tul
