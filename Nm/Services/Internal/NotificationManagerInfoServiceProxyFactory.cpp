#include <Nm/Services/Internal/NotificationManagerInfoServiceProxy.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationManagerInfoServiceProxyFactory::NotificationManagerInfoServiceProxyFactory()
    : TulServiceProxyFactoryBase("Kiv.System.Nm.Services.Internal.INotificationManagerInfoService", "Kiv")
{
}

NotificationManagerInfoServiceProxyFactory& NotificationManagerInfoServiceProxyFactory::GetInstance()
{
    // Built at the first call, safely against concurrent first calls; lives until the library goes.
    static NotificationManagerInfoServiceProxyFactory instance;
    return instance;
}

Tul::ITulServiceProxy* NotificationManagerInfoServiceProxyFactory::CreateServiceProxy(
    unsigned short providerHandle, unsigned short serviceHandle, Tul::TulClient& client)
{
    return new NotificationManagerInfoServiceProxy(providerHandle, serviceHandle, client);
}
}  // namespace Kiv::System::Nm::Services::Internal
