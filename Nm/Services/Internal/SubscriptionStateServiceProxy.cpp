#include <Nm/Services/Internal/SubscriptionStateServiceProxy.h>
#include <Nm/Services/Internal/SubscriptionStateServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
SubscriptionStateServiceProxy::SubscriptionStateServiceProxy(unsigned short providerHandle,
                                                             unsigned short serviceHandle,
                                                             Tul::TulClient& client)
    : TulServiceProxyBase(providerHandle, serviceHandle, client)
{
}

void SubscriptionStateServiceProxy::RefreshServiceHandle()
{
    RefreshServiceHandleOf(SubscriptionStateServiceProxyFactory::GetInstance().GetServiceName());
}

bool SubscriptionStateServiceProxy::IsChecked()
{
    return Call<bool>(1);
}

void SubscriptionStateServiceProxy::SetStateChecked()
{
    return Call<void>(2);
}

void SubscriptionStateServiceProxy::SetStateRelaxed()
{
    return Call<void>(3);
}
}  // namespace Kiv::System::Nm::Services::Internal
