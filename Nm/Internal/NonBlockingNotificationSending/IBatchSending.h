#pragma once

#include <Nm/Internal/NotificationSendBatch.h>

#include <vector>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// Sending several notifications in one call to the broker. The worker of the non-blocking path uses it
/// where the INotificationSending it runs against offers it as well, and else sends one by one.
class IBatchSending
{
public:
    virtual ~IBatchSending() = default;

    /// The broker takes the notifications in order and stops at the first that it does not take; see
    /// NotificationBatchAnswer. An exception means that none was taken, or that the broker can't be
    /// reached any more.
    virtual NotificationBatchAnswer SendNotifications(const std::vector<BatchedNotification>& batch) = 0;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
