#pragma once

#include <Nm/Services/TulServiceProxyFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Knows the names of INotificationDispatcherManagerService and makes its proxies.
class KIV_API NotificationDispatcherManagerServiceProxyFactory : public TulServiceProxyFactoryBase
{
public:
    static NotificationDispatcherManagerServiceProxyFactory& GetInstance();

    Tul::ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                              Tul::TulClient& client) override;

private:
    NotificationDispatcherManagerServiceProxyFactory();
};
}  // namespace Kiv::System::Nm::Services::Internal
