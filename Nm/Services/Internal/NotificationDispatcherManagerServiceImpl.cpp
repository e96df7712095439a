#include <Nm/Services/Internal/Broker.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceImpl.h>
#include <Nm/Services/ServiceValues.h>

namespace Kiv::System::Nm::Services::Internal
{
std::uint16_t NotificationDispatcherManagerServiceImpl::RegisterDispatcher(
    const TulString<512>& dispatcherName)
{
    return Broker().RegisterDispatcher(ToString(dispatcherName)).GetValue();
}

void NotificationDispatcherManagerServiceImpl::UnregisterDispatcher(std::uint16_t dispatcherId)
{
    Broker().UnregisterDispatcher(NotificationDispatcherId(dispatcherId));
}

void NotificationDispatcherManagerServiceImpl::RegisterNotificationDispatch(std::uint32_t notificationNameId,
                                                                            std::uint16_t dispatcherId)
{
    Broker().RegisterNotificationDispatch(NotificationNameId(notificationNameId),
                                          NotificationDispatcherId(dispatcherId));
}

void NotificationDispatcherManagerServiceImpl::UnregisterNotificationDispatch(
    std::uint32_t notificationNameId, std::uint16_t dispatcherId)
{
    Broker().UnregisterNotificationDispatch(NotificationNameId(notificationNameId),
                                            NotificationDispatcherId(dispatcherId));
}

bool NotificationDispatcherManagerServiceImpl::ContainsNotificationDispatch(std::uint32_t notificationNameId,
                                                                            std::uint16_t dispatcherId)
{
    return Broker().ContainsNotificationDispatch(NotificationNameId(notificationNameId),
                                                 NotificationDispatcherId(dispatcherId));
}
}  // namespace Kiv::System::Nm::Services::Internal
