#pragma once

#include <Nm/AppDomainSingleton.h>
#include <Nm/INonBlockingNotificationSendingTarget.h>
#include <Nm/INotificationManagerInfo.h>
#include <Nm/INotificationReceiving.h>
#include <Nm/INotificationSending.h>
#include <Nm/NotificationSubscriber.h>

#include <Kiv/Export.h>
#include <Kiv/Logging/Loggable.h>

#include <cstdint>
#include <memory>

namespace Kiv::System::Nm
{
/// What a component sees of the whole system: registering, sending, subscribing, asking, and the
/// non-blocking forms for time-critical code. One per process, created by NotificationManagerSetup.
///
/// Sending and asking go to the broker's services, subscribing to this process's dispatcher, and the
/// non-blocking forms to a queue whose worker thread calls back into the blocking forms. The broker's own
/// process is served the same way as any other: which process answers is the service manager's business.
class KIV_API NotificationManager : public AppDomainSingleton<NotificationManager>,
                                    public INotificationSending,
                                    public INonBlockingNotificationSendingTarget,
                                    public INotificationManagerInfo,
                                    public INotificationReceiving,
                                    public Commons::Logging::Loggable<NotificationManager, true, false>
{
public:
    /// `queueLength` is the capacity of the non-blocking queue. Fetches the broker's services and creates
    /// this process's dispatcher, which registers at the broker.
    explicit NotificationManager(unsigned int queueLength);
    NotificationManager(const NotificationManager&) = delete;
    NotificationManager& operator=(const NotificationManager&) = delete;
    /// Takes the dispatcher down first, then the non-blocking queue's thread, then the services.
    ~NotificationManager() override;

    NotificationNameId RegisterNotification(const String& notificationName, const String& senderName,
                                            Severity severity, PayloadTypeId payloadTypeId) override;
    void UnregisterNotification(NotificationNameId notificationNameId) override;
    /// The broker's refusals come through as they are; a broken table row becomes
    /// InvalidOperationException "Cannot send Notification. <reason>". 0 when the broker's queue is full.
    NotificationId SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                    const std::vector<TulVariant<512>>& payload) override;
    NotificationId SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                    const IPayload& payload) override;

    Future<NotificationNameId> NonBlockingRegisterNotification(const String& notificationName,
                                                               const String& senderName, Severity severity,
                                                               PayloadTypeId payloadTypeId) override;
    Future<void> NonBlockingUnregisterNotification(NotificationNameId notificationNameId) override;
    Future<NotificationId> NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                       DateTime timestamp,
                                                       const std::vector<TulVariant<512>>& payload) override;
    /// Reduces the payload to its values on the caller's thread.
    Future<NotificationId> NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                       DateTime timestamp, const IPayload& payload) override;
    void NonBlockingRegisterNotification(const String& notificationName, const String& senderName,
                                         Severity severity, PayloadTypeId payloadTypeId,
                                         Future<NotificationNameId> future) override;
    void NonBlockingUnregisterNotification(NotificationNameId notificationNameId,
                                           Future<void> future) override;
    void NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                     std::function<std::vector<TulVariant<512>>()> createPayload,
                                     Future<NotificationId> future) override;
    void NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                     CreatePayloadFunction createPayload, CreatePayloadFunctorArg arg,
                                     Future<NotificationId> future) override;

    String GetNotificationName(NotificationNameId notificationNameId) const override;
    NotificationNameId GetNotificationNameId(const String& notificationName) override;
    std::vector<NotificationNameId> GetNotificationNameIdsByStatus(
        const NotificationRegistrationStatus& status) const override;
    std::vector<NotificationNameId> GetAllKnownNotificationNameIds() const override;
    NotificationRegistrationInfo GetNotificationRegistration(
        NotificationNameId notificationNameId) const override;
    PayloadTypeId GetPayloadTypeId(const String& payloadTypeName) override;
    String GetPayloadTypeName(const PayloadTypeId& payloadTypeId) const override;
    std::uint64_t GetNumberOfSubmittedNotifications() const override;

    NotificationNameId Subscribe(const String& notificationName,
                                 INotificationSubscriber* subscriber) override;
    void Unsubscribe(NotificationNameId notificationNameId, INotificationSubscriber* subscriber) override;
    void UnsubscribeFromAll(INotificationSubscriber* subscriber) override;

    /// Gives `newSubscriber` the subscriptions of `oldSubscriber`, after dropping its own.
    void ReplaceSubscriber(INotificationSubscriber* oldSubscriber, INotificationSubscriber* newSubscriber);
    /// A subscriber of `notificationName`, subscribed already.
    NotificationSubscriber CreateNotificationSubscriber(const String& notificationName);
    /// How many argument buffers a non-blocking registration should provide: the non-blocking queue's
    /// capacity. Raises when there is no manager.
    static std::uint32_t GetDefaultArgumentsBufferCapacity();

private:
    /// Runs a call of the broker's services; a lost broker is logged once and the call still raises.
    template <class Call>
    auto CallBroker(Call call) const;

    struct Impl;
    std::unique_ptr<Impl> impl;
};
}  // namespace Kiv::System::Nm
