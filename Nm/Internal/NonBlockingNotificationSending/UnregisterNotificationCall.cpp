#include <Nm/INotificationSending.h>
#include <Nm/Internal/NonBlockingNotificationSending/UnregisterNotificationCall.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
UnregisterNotificationCall::UnregisterNotificationCall(const NotificationNameId& notificationNameId)
    : notificationNameId(notificationNameId)
{
}

UnregisterNotificationCall::UnregisterNotificationCall(Future<void> future,
                                                       const NotificationNameId& notificationNameId)
    : FunctionCall(std::move(future)), notificationNameId(notificationNameId)
{
}

void UnregisterNotificationCall::DoExecute(INotificationSending& sending) const
{
    sending.UnregisterNotification(notificationNameId);
    GetPromise().SetValue();
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
