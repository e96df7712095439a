#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxy.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherManagerServiceProxy::NotificationDispatcherManagerServiceProxy(
    unsigned short providerHandle, unsigned short serviceHandle, Tul::TulClient& client)
    : TulServiceProxyBase(providerHandle, serviceHandle, client)
{
}

void NotificationDispatcherManagerServiceProxy::RefreshServiceHandle()
{
    RefreshServiceHandleOf(NotificationDispatcherManagerServiceProxyFactory::GetInstance().GetServiceName());
}

std::uint16_t NotificationDispatcherManagerServiceProxy::RegisterDispatcher(
    const TulString<512>& dispatcherName)
{
    return Call<std::uint16_t>(1, dispatcherName);
}

void NotificationDispatcherManagerServiceProxy::UnregisterDispatcher(std::uint16_t dispatcherId)
{
    return Call<void>(2, dispatcherId);
}

void NotificationDispatcherManagerServiceProxy::RegisterNotificationDispatch(std::uint32_t notificationNameId,
                                                                             std::uint16_t dispatcherId)
{
    return Call<void>(3, notificationNameId, dispatcherId);
}

void NotificationDispatcherManagerServiceProxy::UnregisterNotificationDispatch(
    std::uint32_t notificationNameId, std::uint16_t dispatcherId)
{
    return Call<void>(4, notificationNameId, dispatcherId);
}

bool NotificationDispatcherManagerServiceProxy::ContainsNotificationDispatch(std::uint32_t notificationNameId,
                                                                             std::uint16_t dispatcherId)
{
    return Call<bool>(5, notificationNameId, dispatcherId);
}
}  // namespace Kiv::System::Nm::Services::Internal
