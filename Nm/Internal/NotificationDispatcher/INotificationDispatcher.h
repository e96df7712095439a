#pragma once

#include <Nm/IdType.h>

#include <Kiv/Export.h>

#include <vector>

namespace Kiv::System::Nm
{
class Notification;
}

namespace Kiv::System::Nm::Internal::NotificationDispatcher
{
/// The delivery end of a process.
class KIV_API INotificationDispatcher
{
public:
    virtual ~INotificationDispatcher();

    /// Calls the subscribers of `notificationNameIds`, which the broker worked out for this process.
    virtual void Dispatch(const Notification& notification,
                          const std::vector<NotificationNameId>& notificationNameIds) = 0;
};
}  // namespace Kiv::System::Nm::Internal::NotificationDispatcher
