#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Nm
{
class Notification;

/// What the dispatcher of a process calls for each notification that a subscription matches.
class KIV_API INotificationSubscriber
{
public:
    virtual ~INotificationSubscriber();

    /// Runs on the delivering thread; an exception is reported and costs the other subscribers nothing.
    virtual void Notify(const Notification& notification) = 0;
};
}  // namespace Kiv::System::Nm
