#pragma once

#include <Nm/Future.h>
#include <Nm/INonBlockingNotificationSending.h>
#include <Nm/IdType.h>
#include <Nm/NonBlockingNotificationSendingAdapter.h>
#include <Nm/Severity.h>
#include <Nm/TulVariant.h>

#include <Kiv/BasicString.h>
#include <Kiv/DateTime.h>
#include <Kiv/Export.h>

#include <functional>
#include <vector>

namespace Kiv::System::Nm
{
/// What a NonBlockingNotificationSendingAdapter forwards to: the non-blocking operations, their forms
/// that fill a Future the caller made ahead of time, and the one blocking operation a registration
/// needs. NotificationManager implements it; an adapter built on the manager binds here.
class KIV_API INonBlockingNotificationSendingTarget : public INonBlockingNotificationSending
{
public:
    using CreatePayloadFunctorArg = NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg;
    using CreatePayloadFunction = NonBlockingNotificationSendingAdapter::CreatePayloadFunction;

    using INonBlockingNotificationSending::NonBlockingRegisterNotification;
    using INonBlockingNotificationSending::NonBlockingSendNotification;
    using INonBlockingNotificationSending::NonBlockingUnregisterNotification;

    /// Blocks, and may make a remote call: not for time-critical code.
    virtual NotificationNameId RegisterNotification(const String& notificationName, const String& senderName,
                                                    Severity severity, PayloadTypeId payloadTypeId) = 0;

    /// The forms below return nothing: `future` is put back to pending and receives the result, or is
    /// made invalid when the request could not be queued.
    virtual void NonBlockingRegisterNotification(const String& notificationName, const String& senderName,
                                                 Severity severity, PayloadTypeId payloadTypeId,
                                                 Future<NotificationNameId> future) = 0;

    virtual void NonBlockingUnregisterNotification(NotificationNameId notificationNameId,
                                                   Future<void> future) = 0;

    /// The payload is built by `createPayload` on the worker thread.
    virtual void NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                             std::function<std::vector<TulVariant<512>>()> createPayload,
                                             Future<NotificationId> future) = 0;

    /// The payload is built by `createPayload(arg)` on the worker thread; nothing is allocated here.
    virtual void NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                             CreatePayloadFunction createPayload, CreatePayloadFunctorArg arg,
                                             Future<NotificationId> future) = 0;
};
}  // namespace Kiv::System::Nm
