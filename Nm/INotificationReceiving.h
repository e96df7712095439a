#pragma once

#include <Nm/IdType.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

namespace Kiv::System::Nm
{
class INotificationSubscriber;

/// Subscribing to names. A subscriber is not owned: it must unsubscribe before it goes.
class KIV_API INotificationReceiving
{
public:
    virtual ~INotificationReceiving();

    /// The subscriber is called for notifications on the name and on every name below it.
    virtual NotificationNameId Subscribe(const String& notificationName,
                                         INotificationSubscriber* subscriber) = 0;
    virtual void Unsubscribe(NotificationNameId notificationNameId, INotificationSubscriber* subscriber) = 0;
    /// A null subscriber is ignored.
    virtual void UnsubscribeFromAll(INotificationSubscriber* subscriber) = 0;
};
}  // namespace Kiv::System::Nm
