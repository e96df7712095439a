#include <Nm/IPayload.h>
#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>
#include <Nm/Internal/NonBlockingNotificationSending/Tracepoints.h>
#include <Nm/Internal/NotificationDispatcher/NotificationDispatcher.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/Internal/INotificationManagerInfoService.h>
#include <Nm/Services/Internal/INotificationSendingService.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>
#include <Nm/Services/ServiceValues.h>

#include <Kiv/Exceptions.h>

#include <atomic>

namespace Kiv::System::Nm
{
using Internal::NonBlockingNotificationSending::Proxy;
using Internal::NotificationDispatcher::NotificationDispatcher;
using Services::ToString;
using Services::ToTulString;
using Services::Internal::INotificationManagerInfoService;
using Services::Internal::INotificationSendingService;

// The non-blocking worker sends its batches through here: this header is public, the batch is not.
struct NotificationManager::Impl : Internal::NonBlockingNotificationSending::IBatchSending
{
    Impl(NotificationManager& manager, unsigned int queueLength)
        : manager(manager), proxy(manager, queueLength, this)
    {
    }

    Internal::NotificationBatchAnswer SendNotifications(
        const std::vector<Internal::BatchedNotification>& batch) override;

    void InitializeServiceNotificationSending()
    {
        notificationSendingService =
            Services::FetchService<INotificationSendingService,
                                   Services::Internal::NotificationSendingServiceProxyFactory>();
        if (!notificationSendingService)
        {
            throw InvalidOperationException(
                "NotificationManager: Cannot get pointer to INotificationSendingService");
        }
    }

    void InitializeServiceNotificationManagerInfo()
    {
        notificationManagerInfoService =
            Services::FetchService<INotificationManagerInfoService,
                                   Services::Internal::NotificationManagerInfoServiceProxyFactory>();
        if (!notificationManagerInfoService)
        {
            throw InvalidOperationException(
                "NotificationManager: Cannot get pointer to INotificationManagerInfoService");
        }
    }

    NotificationDispatcher& GetNotificationDispatcher() const
    {
        return AppDomainSingleton<NotificationDispatcher>::GetInstance();
    }

    std::shared_ptr<INotificationSendingService> notificationSendingService;
    std::shared_ptr<INotificationManagerInfoService> notificationManagerInfoService;
    /// Set once a call found the broker gone: that is logged once, every call still raises.
    std::atomic<bool> brokerLost{false};
    NotificationManager& manager;
    Proxy proxy;
};

namespace
{
/// A broken table row on the broker's side reaches a sender in these words.
template <class Call>
auto TranslateSendFailure(Call call)
{
    try
    {
        return call();
    }
    catch (const InvalidOperationException& e)
    {
        throw InvalidOperationException("Cannot send Notification. {}", e.GetMessage());
    }
}
}  // namespace

NotificationManager::NotificationManager(unsigned int queueLength)
    : impl(std::make_unique<Impl>(*this, queueLength))
{
    impl->InitializeServiceNotificationSending();
    impl->InitializeServiceNotificationManagerInfo();
    AppDomainSingleton<NotificationDispatcher>::CreateInstance();
}

template <class Call>
auto NotificationManager::CallBroker(Call call) const
{
    try
    {
        return call();
    }
    catch (const CommunicationException& e)
    {
        if (!impl->brokerLost.exchange(true))
        {
            Log(Commons::Logging::LogLevel::Error, "The notification broker cannot be reached any more: {0}",
                e.GetMessage());
        }
        throw;
    }
}

NotificationManager::~NotificationManager()
{
    AppDomainSingleton<NotificationDispatcher>::DisposeInstance();
    // The worker sends through this object: it ends while the implementation is still there.
    impl->proxy.Stop();
    impl.reset();
}

NotificationNameId NotificationManager::RegisterNotification(const String& notificationName,
                                                             const String& senderName, Severity severity,
                                                             PayloadTypeId payloadTypeId)
{
    return CallBroker(
        [&]
        {
            const TulString<512> name = ToTulString(notificationName);
            const TulString<512> sender = ToTulString(senderName);
            return NotificationNameId(impl->notificationSendingService->RegisterNotification(
                name, sender, severity, payloadTypeId.GetValue()));
        });
}

void NotificationManager::UnregisterNotification(NotificationNameId notificationNameId)
{
    return CallBroker(
        [&] { impl->notificationSendingService->UnregisterNotification(notificationNameId.GetValue()); });
}

NotificationId NotificationManager::SendNotification(NotificationNameId notificationNameId,
                                                     DateTime timestamp,
                                                     const std::vector<TulVariant<512>>& payload)
{
    return CallBroker(
        [&]
        {
            return TranslateSendFailure(
                [&]
                {
                    return NotificationId(impl->notificationSendingService->SendNotification(
                        notificationNameId.GetValue(), timestamp, payload));
                });
        });
}

// As a single send: the broker's failures reach the worker in the same words.
Internal::NotificationBatchAnswer NotificationManager::Impl::SendNotifications(
    const std::vector<Internal::BatchedNotification>& batch)
{
    return manager.CallBroker(
        [&] {
            return TranslateSendFailure([&] { return notificationSendingService->SendNotifications(batch); });
        });
}

NotificationId NotificationManager::SendNotification(NotificationNameId notificationNameId,
                                                     DateTime timestamp, const IPayload& payload)
{
    return SendNotification(notificationNameId, timestamp, payload.GetAsRawPayloadType());
}

Future<NotificationNameId> NotificationManager::NonBlockingRegisterNotification(
    const String& notificationName, const String& senderName, Severity severity, PayloadTypeId payloadTypeId)
{
    KIV_NM_TRACEPOINT(NmNonBlockingRegisterNotification);
    return impl->proxy.NonBlockingRegisterNotification(notificationName, senderName, severity, payloadTypeId);
}

Future<void> NotificationManager::NonBlockingUnregisterNotification(NotificationNameId notificationNameId)
{
    KIV_NM_TRACEPOINT(NmNonBlockingUnregisterNotification);
    return impl->proxy.NonBlockingUnregisterNotification(notificationNameId);
}

// The proxy's worker sends through SendNotification above, so its failures arrive in the Future already in
// the words of a blocking send.
Future<NotificationId> NotificationManager::NonBlockingSendNotification(
    NotificationNameId notificationNameId, DateTime timestamp, const std::vector<TulVariant<512>>& payload)
{
    KIV_NM_TRACEPOINT(NmNonBlockingSendNotification);
    return impl->proxy.NonBlockingSendNotification(notificationNameId, timestamp, payload);
}

Future<NotificationId> NotificationManager::NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                                        DateTime timestamp,
                                                                        const IPayload& payload)
{
    return NonBlockingSendNotification(notificationNameId, timestamp, payload.GetAsRawPayloadType());
}

void NotificationManager::NonBlockingRegisterNotification(const String& notificationName,
                                                          const String& senderName, Severity severity,
                                                          PayloadTypeId payloadTypeId,
                                                          Future<NotificationNameId> future)
{
    KIV_NM_TRACEPOINT(NmNonBlockingRegisterNotification);
    impl->proxy.NonBlockingRegisterNotification(notificationName, senderName, severity, payloadTypeId,
                                                std::move(future));
}

void NotificationManager::NonBlockingUnregisterNotification(NotificationNameId notificationNameId,
                                                            Future<void> future)
{
    KIV_NM_TRACEPOINT(NmNonBlockingUnregisterNotification);
    impl->proxy.NonBlockingUnregisterNotification(notificationNameId, std::move(future));
}

void NotificationManager::NonBlockingSendNotification(
    NotificationNameId notificationNameId, DateTime timestamp,
    std::function<std::vector<TulVariant<512>>()> createPayload, Future<NotificationId> future)
{
    KIV_NM_TRACEPOINT(NmNonBlockingSendNotification);
    impl->proxy.NonBlockingSendNotification(notificationNameId, timestamp, std::move(createPayload),
                                            std::move(future));
}

void NotificationManager::NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                      DateTime timestamp, CreatePayloadFunction createPayload,
                                                      CreatePayloadFunctorArg arg,
                                                      Future<NotificationId> future)
{
    KIV_NM_TRACEPOINT(NmNonBlockingSendNotification);
    impl->proxy.NonBlockingSendNotification(notificationNameId, timestamp, createPayload, std::move(arg),
                                            std::move(future));
}

String NotificationManager::GetNotificationName(NotificationNameId notificationNameId) const
{
    return CallBroker(
        [&]
        {
            return ToString(
                impl->notificationManagerInfoService->GetNotificationName(notificationNameId.GetValue()));
        });
}

NotificationNameId NotificationManager::GetNotificationNameId(const String& notificationName)
{
    return CallBroker(
        [&]
        {
            return NotificationNameId(
                impl->notificationManagerInfoService->GetNotificationNameId(ToTulString(notificationName)));
        });
}

std::vector<NotificationNameId> NotificationManager::GetNotificationNameIdsByStatus(
    const NotificationRegistrationStatus& status) const
{
    return CallBroker(
        [&]
        {
            return ConvertRawIdsToIdTypes<NotificationNameId>(
                impl->notificationManagerInfoService->GetNotificationNameIdsByStatus(status));
        });
}

std::vector<NotificationNameId> NotificationManager::GetAllKnownNotificationNameIds() const
{
    return CallBroker(
        [&]
        {
            return ConvertRawIdsToIdTypes<NotificationNameId>(
                impl->notificationManagerInfoService->GetAllKnownNotificationNameIds());
        });
}

NotificationRegistrationInfo NotificationManager::GetNotificationRegistration(
    NotificationNameId notificationNameId) const
{
    return CallBroker(
        [&] {
            return impl->notificationManagerInfoService->GetNotificationRegistration(
                notificationNameId.GetValue());
        });
}

PayloadTypeId NotificationManager::GetPayloadTypeId(const String& payloadTypeName)
{
    return CallBroker(
        [&]
        {
            return PayloadTypeId(
                impl->notificationManagerInfoService->GetPayloadTypeId(ToTulString(payloadTypeName)));
        });
}

String NotificationManager::GetPayloadTypeName(const PayloadTypeId& payloadTypeId) const
{
    return CallBroker(
        [&] {
            return ToString(
                impl->notificationManagerInfoService->GetPayloadTypeName(payloadTypeId.GetValue()));
        });
}

std::uint64_t NotificationManager::GetNumberOfSubmittedNotifications() const
{
    return CallBroker([&]
                      { return impl->notificationManagerInfoService->GetNumberOfSubmittedNotifications(); });
}

NotificationNameId NotificationManager::Subscribe(const String& notificationName,
                                                  INotificationSubscriber* subscriber)
{
    return impl->GetNotificationDispatcher().Subscribe(notificationName, subscriber);
}

void NotificationManager::Unsubscribe(NotificationNameId notificationNameId,
                                      INotificationSubscriber* subscriber)
{
    impl->GetNotificationDispatcher().Unsubscribe(notificationNameId, subscriber);
}

void NotificationManager::UnsubscribeFromAll(INotificationSubscriber* subscriber)
{
    impl->GetNotificationDispatcher().UnsubscribeFromAll(subscriber);
}

void NotificationManager::ReplaceSubscriber(INotificationSubscriber* oldSubscriber,
                                            INotificationSubscriber* newSubscriber)
{
    impl->GetNotificationDispatcher().ReplaceSubscriber(oldSubscriber, newSubscriber);
}

NotificationSubscriber NotificationManager::CreateNotificationSubscriber(const String& notificationName)
{
    return NotificationSubscriber(notificationName);
}

std::uint32_t NotificationManager::GetDefaultArgumentsBufferCapacity()
{
    return GetInstance().impl->proxy.GetMaxQueueLength();
}
}  // namespace Kiv::System::Nm
