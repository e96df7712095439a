#pragma once

#include <Nm/Services/TulServiceProxyFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Knows the names of INotificationSendingService and makes its proxies.
class KIV_API NotificationSendingServiceProxyFactory : public TulServiceProxyFactoryBase
{
public:
    static NotificationSendingServiceProxyFactory& GetInstance();

    Tul::ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                              Tul::TulClient& client) override;

private:
    NotificationSendingServiceProxyFactory();
};
}  // namespace Kiv::System::Nm::Services::Internal
