#pragma once

#include <Kiv/Export.h>

#include <memory>

namespace Kiv::System::Tul
{
class TulClient;
namespace Internal
{
class Transport;
}

/// The client end of a service. A concrete proxy also derives from its service interface, and through
/// it from ITulService.
class KIV_API ITulServiceProxy
{
public:
    virtual ~ITulServiceProxy();
    virtual unsigned short GetServiceHandle() const = 0;
    virtual unsigned short GetProviderHandle() const = 0;
    /// Asks the connection for the current service handle, e.g. after the server side published anew.
    virtual void RefreshServiceHandle() = 0;

protected:
    ITulServiceProxy() = default;
    ITulServiceProxy(const ITulServiceProxy&) = default;
    ITulServiceProxy& operator=(const ITulServiceProxy&) = default;

private:
    friend class Internal::Transport;

    /// Keeps the connection that the proxy refers to, which its transport lets go when the provider has
    /// gone or the transport stops: the connection object lives as long as a proxy made on it.
    std::shared_ptr<TulClient> connection;
};
}  // namespace Kiv::System::Tul
