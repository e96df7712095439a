#include <Nm/Services/Internal/NotificationDispatcherServiceProxy.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherServiceProxyFactory::NotificationDispatcherServiceProxyFactory()
    : TulServiceProxyFactoryBase("Kiv.System.Nm.Services.Internal.INotificationDispatcherService", "")
{
}

NotificationDispatcherServiceProxyFactory& NotificationDispatcherServiceProxyFactory::GetInstance()
{
    // Built at the first call, safely against concurrent first calls; lives until the library goes.
    static NotificationDispatcherServiceProxyFactory instance;
    return instance;
}

Tul::ITulServiceProxy* NotificationDispatcherServiceProxyFactory::CreateServiceProxy(
    unsigned short providerHandle, unsigned short serviceHandle, Tul::TulClient& client)
{
    return new NotificationDispatcherServiceProxy(providerHandle, serviceHandle, client);
}
}  // namespace Kiv::System::Nm::Services::Internal
