#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
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
};
}  // namespace Kiv::System::Tul
