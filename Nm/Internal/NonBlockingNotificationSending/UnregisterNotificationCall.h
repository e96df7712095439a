#pragma once

#include <Nm/IdType.h>
#include <Nm/Internal/NonBlockingNotificationSending/FunctionCall.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// An unregistration: UnregisterNotification on the worker; the Future tells when and how it ended.
class KIV_API UnregisterNotificationCall final : public FunctionCall<void>
{
public:
    explicit UnregisterNotificationCall(const NotificationNameId& notificationNameId);
    UnregisterNotificationCall(Future<void> future, const NotificationNameId& notificationNameId);
    UnregisterNotificationCall(UnregisterNotificationCall&&) noexcept = default;
    UnregisterNotificationCall& operator=(UnregisterNotificationCall&&) noexcept = default;
    ~UnregisterNotificationCall() override = default;

protected:
    void DoExecute(INotificationSending& sending) const override;

private:
    NotificationNameId notificationNameId;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
