#include <Nm/Services/Internal/NotificationSendingServiceProxy.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationSendingServiceProxyFactory::NotificationSendingServiceProxyFactory()
    : TulServiceProxyFactoryBase("Kiv.System.Nm.Services.Internal.INotificationSendingService", "Kiv")
{
}

NotificationSendingServiceProxyFactory& NotificationSendingServiceProxyFactory::GetInstance()
{
    // Built at the first call, safely against concurrent first calls; lives until the library goes.
    static NotificationSendingServiceProxyFactory instance;
    return instance;
}

Tul::ITulServiceProxy* NotificationSendingServiceProxyFactory::CreateServiceProxy(
    unsigned short providerHandle, unsigned short serviceHandle, Tul::TulClient& client)
{
    return new NotificationSendingServiceProxy(providerHandle, serviceHandle, client);
}
}  // namespace Kiv::System::Nm::Services::Internal
