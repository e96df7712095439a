#pragma once

#include <Nm/Services/TulServiceProxyFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Knows the names of INotificationManagerInfoService and makes its proxies.
class KIV_API NotificationManagerInfoServiceProxyFactory : public TulServiceProxyFactoryBase
{
public:
    static NotificationManagerInfoServiceProxyFactory& GetInstance();

    Tul::ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                              Tul::TulClient& client) override;

private:
    NotificationManagerInfoServiceProxyFactory();
};
}  // namespace Kiv::System::Nm::Services::Internal
