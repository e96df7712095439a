#include <Nm/INonBlockingNotificationSendingTarget.h>
#include <Nm/NonBlockingNotificationSendingAdapter.h>

#include <utility>

namespace Kiv::System::Nm
{
NonBlockingNotificationSendingAdapter::NonBlockingNotificationSendingAdapter(
    INonBlockingNotificationSendingTarget& notificationManager)
    : notificationManager(notificationManager)
{
}

Future<NotificationNameId> NonBlockingNotificationSendingAdapter::NonBlockingRegisterNotification(
    const String& notificationName, const String& senderName, Severity severity, PayloadTypeId payloadTypeId)
{
    return notificationManager.NonBlockingRegisterNotification(notificationName, senderName, severity,
                                                               payloadTypeId);
}

Future<void> NonBlockingNotificationSendingAdapter::NonBlockingUnregisterNotification(
    NotificationNameId notificationNameId)
{
    return notificationManager.NonBlockingUnregisterNotification(notificationNameId);
}

Future<NotificationId> NonBlockingNotificationSendingAdapter::NonBlockingSendNotification(
    NotificationNameId notificationNameId, DateTime timestamp, const std::vector<TulVariant<512>>& payload)
{
    return notificationManager.NonBlockingSendNotification(notificationNameId, timestamp, payload);
}

Future<NotificationId> NonBlockingNotificationSendingAdapter::NonBlockingSendNotification(
    NotificationNameId notificationNameId, DateTime timestamp, const IPayload& payload)
{
    return notificationManager.NonBlockingSendNotification(notificationNameId, timestamp, payload);
}

NotificationNameId NonBlockingNotificationSendingAdapter::RegisterNotification(const String& notificationName,
                                                                               const String& senderName,
                                                                               Severity severity,
                                                                               PayloadTypeId payloadTypeId)
{
    return notificationManager.RegisterNotification(notificationName, senderName, severity, payloadTypeId);
}

void NonBlockingNotificationSendingAdapter::NonBlockingRegisterNotification(const String& notificationName,
                                                                            const String& senderName,
                                                                            Severity severity,
                                                                            PayloadTypeId payloadTypeId,
                                                                            Future<NotificationNameId> future)
{
    notificationManager.NonBlockingRegisterNotification(notificationName, senderName, severity, payloadTypeId,
                                                        std::move(future));
}

void NonBlockingNotificationSendingAdapter::NonBlockingUnregisterNotification(
    NotificationNameId notificationNameId, Future<void> future)
{
    notificationManager.NonBlockingUnregisterNotification(notificationNameId, std::move(future));
}

void NonBlockingNotificationSendingAdapter::NonBlockingSendNotification(
    NotificationNameId notificationNameId, DateTime timestamp,
    std::function<std::vector<TulVariant<512>>()> createPayload, Future<NotificationId> future)
{
    notificationManager.NonBlockingSendNotification(notificationNameId, timestamp, std::move(createPayload),
                                                    std::move(future));
}

void NonBlockingNotificationSendingAdapter::NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                                        DateTime timestamp,
                                                                        CreatePayloadFunction createPayload,
                                                                        CreatePayloadFunctorArg arg,
                                                                        Future<NotificationId> future)
{
    notificationManager.NonBlockingSendNotification(notificationNameId, timestamp, createPayload,
                                                    std::move(arg), std::move(future));
}
}  // namespace Kiv::System::Nm
