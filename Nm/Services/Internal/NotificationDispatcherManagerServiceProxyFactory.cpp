#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxy.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherManagerServiceProxyFactory::NotificationDispatcherManagerServiceProxyFactory()
    : TulServiceProxyFactoryBase("Kiv.System.Nm.Services.Internal.INotificationDispatcherManagerService",
                                 "Kiv")
{
}

NotificationDispatcherManagerServiceProxyFactory&
NotificationDispatcherManagerServiceProxyFactory::GetInstance()
{
    // Built at the first call, safely against concurrent first calls; lives until the library goes.
    static NotificationDispatcherManagerServiceProxyFactory instance;
    return instance;
}

Tul::ITulServiceProxy* NotificationDispatcherManagerServiceProxyFactory::CreateServiceProxy(
    unsigned short providerHandle, unsigned short serviceHandle, Tul::TulClient& client)
{
    return new NotificationDispatcherManagerServiceProxy(providerHandle, serviceHandle, client);
}
}  // namespace Kiv::System::Nm::Services::Internal
