#include <Nm/Notification.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxy.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherServiceProxy::NotificationDispatcherServiceProxy(unsigned short providerHandle,
                                                                       unsigned short serviceHandle,
                                                                       Tul::TulClient& client)
    : TulServiceProxyBase(providerHandle, serviceHandle, client)
{
}

void NotificationDispatcherServiceProxy::RefreshServiceHandle()
{
    RefreshServiceHandleOf(NotificationDispatcherServiceProxyFactory::GetInstance().GetServiceName());
}

void NotificationDispatcherServiceProxy::Dispatch(const Notification& notification,
                                                  const std::vector<std::uint32_t>& nameIds)
{
    Call<void>(1, notification, nameIds);
}
}  // namespace Kiv::System::Nm::Services::Internal
