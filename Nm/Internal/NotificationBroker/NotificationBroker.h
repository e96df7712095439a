#pragma once

#include <Nm/AppDomainSingleton.h>
#include <Nm/INotificationManagerInfo.h>
#include <Nm/INotificationSending.h>
#include <Nm/Internal/NotificationBroker/DepartureWatcher.h>
#include <Nm/Internal/NotificationBroker/INotificationDispatcherManager.h>
#include <Nm/Internal/NotificationBroker/IdGenerator.h>
#include <Nm/Internal/NotificationBroker/NotificationBrokerThread.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatcherManager.h>
#include <Nm/Internal/NotificationBroker/NotificationRegistrationManager.h>
#include <Nm/Internal/NotificationBroker/OwnNotifications.h>
#include <Nm/Internal/NotificationBroker/PayloadTypeRepository.h>
#include <Nm/Internal/NotificationBroker/StateHolder.h>
#include <Nm/Internal/NotificationBroker/Statistics.h>
#include <Nm/Internal/NotificationBroker/SubscriptionState.h>
#include <Nm/Internal/NotificationSendBatch.h>
#include <Nm/Internal/ThreadSafeQueue.h>
#include <Nm/Notification.h>

#include <Kiv/Export.h>
#include <Kiv/Logging/Loggable.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// The one owner of names, registrations, payload types, dispatchers and the dispatch table, with the
/// delivery queue and its thread. One per system, in the main process; other processes reach it through
/// the services it publishes. From construction the system is in its set-up phase: names come into being
/// on demand and sent notifications wait in the queue. StartDispatching ends that phase.
class KIV_API NotificationBroker : public AppDomainSingleton<NotificationBroker>,
                                   public INotificationSending,
                                   public INotificationManagerInfo,
                                   public INotificationDispatcherManager,
                                   public Commons::Logging::Loggable<NotificationBroker, true, false>
{
public:
    explicit NotificationBroker(std::uint32_t queueLength);
    NotificationBroker(const NotificationBroker&) = delete;
    NotificationBroker& operator=(const NotificationBroker&) = delete;
    /// Refuses sends from its start; delivers what is queued, if the thread runs, before any table goes.
    ~NotificationBroker() override;

    NotificationNameId RegisterNotification(const String& notificationName, const String& senderName,
                                            Severity severity, PayloadTypeId payloadTypeId) override;
    void UnregisterNotification(NotificationNameId notificationNameId) override;
    /// The new notification's id, or 0 when the queue is full and the notification was dropped.
    NotificationId SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                    const std::vector<TulVariant<512>>& payload) override;
    NotificationId SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                    const IPayload& payload) override;
    /// As above, taking the payload over: what a served request hands on.
    NotificationId SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                    std::vector<TulVariant<512>>&& payload);
    /// Takes the notifications in order, each as SendNotification would, up to the first that the queue
    /// refuses or that fails; the rest are not looked at. Throws only before it has looked at any.
    NotificationBatchAnswer SendNotifications(const std::vector<BatchedNotification>& batch);

    String GetNotificationName(NotificationNameId notificationNameId) const override;
    /// In the set-up phase an unknown well-formed name is created; afterwards it is refused.
    NotificationNameId GetNotificationNameId(const String& notificationName) override;
    std::vector<NotificationNameId> GetNotificationNameIdsByStatus(
        const NotificationRegistrationStatus& status) const override;
    std::vector<NotificationNameId> GetAllKnownNotificationNameIds() const override;
    NotificationRegistrationInfo GetNotificationRegistration(
        NotificationNameId notificationNameId) const override;
    PayloadTypeId GetPayloadTypeId(const String& payloadTypeName) override;
    String GetPayloadTypeName(const PayloadTypeId& payloadTypeId) const override;
    /// All payload types at once, by ascending id, for tools that list them.
    std::vector<String> GetPayloadTypeNames() const;
    std::uint64_t GetNumberOfSubmittedNotifications() const override;

    NotificationDispatcherId RegisterDispatcher(const String& dispatcherName) override;
    void UnregisterDispatcher(NotificationDispatcherId dispatcherId) override;
    void RegisterNotificationDispatch(NotificationNameId notificationNameId,
                                      NotificationDispatcherId dispatcherId) override;
    void UnregisterNotificationDispatch(NotificationNameId notificationNameId,
                                        NotificationDispatcherId dispatcherId) override;
    bool ContainsNotificationDispatch(NotificationNameId notificationNameId,
                                      NotificationDispatcherId dispatcherId) override;

    /// Ends the set-up phase: subscriptions become checked, with warnings for what nobody registered,
    /// and the delivery thread starts.
    void StartDispatching();
    bool IsSubscriptionStateChecked() const;
    void SetSubscriptionStateChecked();
    void SetSubscriptionStateRelaxed();

    /// How many other processes hold something here and are watched for their end.
    std::size_t CountWatchedProcesses() const;

private:
    /// What one other process registered here: removed when it ends without having removed it.
    struct Holdings
    {
        String processName;
        std::set<NotificationDispatcherId> dispatchers;
        std::set<NotificationNameId> registrations;
        bool Empty() const { return dispatchers.empty() && registrations.empty(); }
    };

    void NoteHolding(const String& processName, NotificationDispatcherId dispatcherId,
                     NotificationNameId registration);
    /// Under holdingsMutex; false if the process has ended already.
    bool NoteHoldingOf(pid_t pid, const String& processName, NotificationDispatcherId dispatcherId,
                       NotificationNameId registration);
    void DropHolding(NotificationDispatcherId dispatcherId, NotificationNameId registration);
    void OnProcessDeparted(pid_t pid);

    /// A send after the start-up work, with stopMutex held shared.
    NotificationId EnqueueNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                       std::vector<TulVariant<512>>&& payload);

    void LazyInitialization() const;
    void PublishServices() const;
    void WarnAboutSubscriptionsToNotRegisteredNotifications();
    void WarnAboutSubscriptionsToUnregisteredNotifications();
    void EnsurePayloadTypeIdIsValid(const String& argumentName, const PayloadTypeId& payloadTypeId) const;
    void EnsurePayloadTypeIdIsKnown(const String& argumentName, const PayloadTypeId& payloadTypeId) const;
    SubscriptionState& GetSubscriptionState() const;

    mutable std::atomic_flag ownNotificationsInitialized = ATOMIC_FLAG_INIT;
    // From the destructor's start no send is taken: every id handed out belongs to a notification that
    // lies ahead of the thread's stop marker. Sends hold it shared from their check to their push.
    std::shared_mutex stopMutex;
    bool stopping = false;
    // Before the tables: the own notifications' registrations go through it when they are disposed.
    mutable std::mutex holdingsMutex;
    std::map<pid_t, Holdings> holdings;
    NotificationRegistrationManager registrationManager;
    IdGenerator<NotificationId> notificationIdGenerator;
    NotificationDispatcherManager dispatcherManager;
    PayloadTypeRepository payloadTypes;
    ThreadSafeQueue<Notification> notificationQueue;
    Statistics statistics;
    NotificationBrokerThread brokerThread;
    // Mutable: the lazy initialization of every const query registers them.
    mutable OwnNotifications ownNotifications;
    StateHolder<SubscriptionState> subscriptionState;
    // Last: it goes first, so no departure is handled while the tables go.
    DepartureWatcher departures;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
