#pragma once

#include <Nm/Services/TulServiceProxyFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Knows the names of ISubscriptionStateService and makes its proxies.
class KIV_API SubscriptionStateServiceProxyFactory : public TulServiceProxyFactoryBase
{
public:
    static SubscriptionStateServiceProxyFactory& GetInstance();

    Tul::ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                              Tul::TulClient& client) override;

private:
    SubscriptionStateServiceProxyFactory();
};
}  // namespace Kiv::System::Nm::Services::Internal
