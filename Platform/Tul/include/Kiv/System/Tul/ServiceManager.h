#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
class ITulAuthorizator;
class ITulService;
class ITulServiceFactory;
class ITulServiceProxyFactory;

/// The registry of published services: names are the only address, a provider name and a service name.
/// A caller in the publishing process gets the service object itself, made by the factory at each
/// GetService. All operations are safe to call from any thread.
class KIV_API ServiceManager
{
public:
    ServiceManager() = delete;

    /// Makes the service of `factory` available under the two names. Publishing the same names again
    /// replaces the earlier publication. The factory is not owned and must outlive the publication.
    /// Raises ArgumentException for a null name or an empty service name.
    static void PublishService(const char* providerName, const char* serviceName,
                               ITulServiceFactory& factory);

    /// A new service object for the service that `proxyFactory` names (GetServiceName) under
    /// `providerName`, owned by the caller; null if no such service is published or the factory makes
    /// none. The object comes from the factory's CreateServiceImpl with the published provider name and
    /// the installed authorizator. Raises ArgumentException for a null provider name.
    static ITulService* GetService(const char* providerName, ITulServiceProxyFactory& proxyFactory);

    /// Installs the policy handed to the factories of guarded services; null for none. Not owned.
    /// Returns the one installed before.
    static ITulAuthorizator* SetAuthorizator(ITulAuthorizator* authorizator) noexcept;

    /// Withdraws every publication and the authorizator, so that a test starts from nothing.
    static void Reset() noexcept;
};
}  // namespace Kiv::System::Tul
