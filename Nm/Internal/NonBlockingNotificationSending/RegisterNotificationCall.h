#pragma once

#include <Nm/IdType.h>
#include <Nm/Internal/NonBlockingNotificationSending/FunctionCall.h>
#include <Nm/Severity.h>

#include <Kiv/BasicString.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// A registration: RegisterNotification on the worker, the new id into the Future.
class KIV_API RegisterNotificationCall final : public FunctionCall<NotificationNameId>
{
public:
    RegisterNotificationCall(const String& notificationName, const String& senderName, Severity severity,
                             PayloadTypeId payloadTypeId);
    RegisterNotificationCall(Future<NotificationNameId> future, const String& notificationName,
                             const String& senderName, Severity severity, PayloadTypeId payloadTypeId);
    RegisterNotificationCall(RegisterNotificationCall&&) noexcept = default;
    RegisterNotificationCall& operator=(RegisterNotificationCall&&) noexcept = default;
    ~RegisterNotificationCall() override = default;

protected:
    void DoExecute(INotificationSending& sending) const override;

private:
    String notificationName;
    String senderName;
    Severity severity;
    PayloadTypeId payloadTypeId;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
