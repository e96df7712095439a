#include <Nm/Services/NotificationManagerServiceProxy.h>
#include <Nm/Services/NotificationManagerServiceProxyFactory.h>

namespace Kiv::System::Nm::Services
{
NotificationManagerServiceProxyFactory::NotificationManagerServiceProxyFactory()
    : TulServiceProxyFactoryBase("Kiv.System.Nm.Services.INotificationManagerService", "Kiv")
{
}

NotificationManagerServiceProxyFactory& NotificationManagerServiceProxyFactory::GetInstance()
{
    // Built at the first call, safely against concurrent first calls; lives until the library goes.
    static NotificationManagerServiceProxyFactory instance;
    return instance;
}

Tul::ITulServiceProxy* NotificationManagerServiceProxyFactory::CreateServiceProxy(
    unsigned short providerHandle, unsigned short serviceHandle, Tul::TulClient& client)
{
    return new NotificationManagerServiceProxy(providerHandle, serviceHandle, client);
}
}  // namespace Kiv::System::Nm::Services
