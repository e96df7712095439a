#include <Nm/Services/Internal/SubscriptionStateServiceProxy.h>
#include <Nm/Services/Internal/SubscriptionStateServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
SubscriptionStateServiceProxyFactory::SubscriptionStateServiceProxyFactory()
    : TulServiceProxyFactoryBase("Kiv.System.Nm.Services.Internal.ISubscriptionStateService", "Kiv")
{
}

SubscriptionStateServiceProxyFactory& SubscriptionStateServiceProxyFactory::GetInstance()
{
    // Built at the first call, safely against concurrent first calls; lives until the library goes.
    static SubscriptionStateServiceProxyFactory instance;
    return instance;
}

Tul::ITulServiceProxy* SubscriptionStateServiceProxyFactory::CreateServiceProxy(unsigned short providerHandle,
                                                                                unsigned short serviceHandle,
                                                                                Tul::TulClient& client)
{
    return new SubscriptionStateServiceProxy(providerHandle, serviceHandle, client);
}
}  // namespace Kiv::System::Nm::Services::Internal
