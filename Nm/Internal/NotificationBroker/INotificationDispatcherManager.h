#pragma once

#include <Nm/IdType.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// Who the dispatchers are and which of them wants which name.
class KIV_API INotificationDispatcherManager
{
public:
    virtual ~INotificationDispatcherManager();

    virtual NotificationDispatcherId RegisterDispatcher(const String& dispatcherName) = 0;
    virtual void UnregisterDispatcher(NotificationDispatcherId dispatcherId) = 0;
    virtual void RegisterNotificationDispatch(NotificationNameId notificationNameId,
                                              NotificationDispatcherId dispatcherId) = 0;
    virtual void UnregisterNotificationDispatch(NotificationNameId notificationNameId,
                                                NotificationDispatcherId dispatcherId) = 0;
    virtual bool ContainsNotificationDispatch(NotificationNameId notificationNameId,
                                              NotificationDispatcherId dispatcherId) = 0;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
