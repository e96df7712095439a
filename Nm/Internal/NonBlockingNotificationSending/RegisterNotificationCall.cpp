#include <Nm/INotificationSending.h>
#include <Nm/Internal/NonBlockingNotificationSending/RegisterNotificationCall.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
RegisterNotificationCall::RegisterNotificationCall(const String& notificationName, const String& senderName,
                                                   Severity severity, PayloadTypeId payloadTypeId)
    : notificationName(notificationName),
      senderName(senderName),
      severity(severity),
      payloadTypeId(payloadTypeId)
{
}

RegisterNotificationCall::RegisterNotificationCall(Future<NotificationNameId> future,
                                                   const String& notificationName, const String& senderName,
                                                   Severity severity, PayloadTypeId payloadTypeId)
    : FunctionCall(std::move(future)),
      notificationName(notificationName),
      senderName(senderName),
      severity(severity),
      payloadTypeId(payloadTypeId)
{
}

void RegisterNotificationCall::DoExecute(INotificationSending& sending) const
{
    const NotificationNameId id =
        sending.RegisterNotification(notificationName, senderName, severity, payloadTypeId);
    GetPromise().SetValue(id);
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
