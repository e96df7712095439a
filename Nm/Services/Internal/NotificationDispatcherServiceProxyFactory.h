#pragma once

#include <Nm/Services/TulServiceProxyFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Makes the proxies of dispatcher services. Has no provider name of its own: each dispatcher is fetched
/// under the name of its process's AppDomain.
class KIV_API NotificationDispatcherServiceProxyFactory : public TulServiceProxyFactoryBase
{
public:
    static NotificationDispatcherServiceProxyFactory& GetInstance();

    Tul::ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                              Tul::TulClient& client) override;

private:
    NotificationDispatcherServiceProxyFactory();
};
}  // namespace Kiv::System::Nm::Services::Internal
