#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
class ITulServiceProxy;
class TulClient;

/// Knows the names of one service and makes its proxies.
class KIV_API ITulServiceProxyFactory
{
public:
    virtual ~ITulServiceProxyFactory();

    /// The name the service is published under; ServiceManager::GetService looks it up by this.
    virtual const char* GetServiceName() const = 0;
    virtual const char* GetServiceProviderName() const = 0;
    /// A new proxy, owned by the caller, on `client`, which it does not own. The object must also derive
    /// from the service's interface, since ServiceManager hands it out as ITulService.
    virtual ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                                 TulClient& client) = 0;

protected:
    ITulServiceProxyFactory() = default;
    ITulServiceProxyFactory(const ITulServiceProxyFactory&) = default;
    ITulServiceProxyFactory& operator=(const ITulServiceProxyFactory&) = default;
};
}  // namespace Kiv::System::Tul
