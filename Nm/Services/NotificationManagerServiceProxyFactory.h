#pragma once

#include <Nm/Services/TulServiceProxyFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services
{
/// Knows the names of INotificationManagerService and makes its proxies.
class KIV_API NotificationManagerServiceProxyFactory : public TulServiceProxyFactoryBase
{
public:
    static NotificationManagerServiceProxyFactory& GetInstance();

    Tul::ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                              Tul::TulClient& client) override;

private:
    NotificationManagerServiceProxyFactory();
};
}  // namespace Kiv::System::Nm::Services
