#pragma once

#include <Nm/AppDomainSingleton.h>
#include <Nm/INotificationReceiving.h>
#include <Nm/Internal/NotificationDispatcher/INotificationDispatcher.h>
#include <Nm/Internal/NotificationDispatcher/NotificationSubscriptionRepository.h>
#include <Nm/Services/Internal/NotificationBatch.h>

#include <Kiv/Export.h>
#include <Kiv/Logging/Loggable.h>
#include <Kiv/Threading/Mutex.h>

#include <memory>

namespace Kiv::System::Nm::Services::Internal
{
class INotificationDispatcherManagerService;
class INotificationManagerInfoService;
class INotificationSendingService;
}  // namespace Kiv::System::Nm::Services::Internal

namespace Kiv::System::Nm::Internal::NotificationDispatcher
{
/// The delivery agent of one process: keeps the process's subscriptions, tells the broker which names
/// this process wants, and calls the subscribers when the broker hands it a notification. A subscriber
/// that throws is logged and reported by the process's own notification
/// "Kiv.System.Nm.ExceptionDuringNotify.<AppDomain name>"; the others are still called.
///
/// One lock, recursive, is held for a whole delivery and around each change of subscriptions: when an
/// unsubscribe returns, the subscriber is not being called and won't be again. Subscribers may
/// subscribe and unsubscribe from inside Notify; the running delivery goes on with its snapshot.
class KIV_API NotificationDispatcher : public AppDomainSingleton<NotificationDispatcher>,
                                       public Commons::Logging::Loggable<NotificationDispatcher, true, false>,
                                       public INotificationDispatcher,
                                       public INotificationReceiving
{
public:
    /// Publishes this process's dispatcher service, registers at the broker and registers the
    /// exception notification. Needs the broker's services.
    NotificationDispatcher();
    NotificationDispatcher(const NotificationDispatcher&) = delete;
    NotificationDispatcher& operator=(const NotificationDispatcher&) = delete;
    /// Unregisters at the broker; subscriptions left are forgotten.
    ~NotificationDispatcher() override;

    void Dispatch(const Notification& notification,
                  const std::vector<NotificationNameId>& notificationNameIds) override;
    NotificationNameId Subscribe(const String& notificationName,
                                 INotificationSubscriber* subscriber) override;
    void Unsubscribe(NotificationNameId notificationNameId, INotificationSubscriber* subscriber) override;
    void UnsubscribeFromAll(INotificationSubscriber* subscriber) override;

    /// Delivers each notification of `batch` in order as Dispatch would, under one hold of the lock. What
    /// a delivery throws out of Dispatch (its report of a failed subscriber failed) becomes the failure of
    /// that notification, and the next one is still delivered. A batch whose counts don't match its
    /// notifications and ids is refused before anything is delivered.
    std::vector<Services::Internal::DispatchFailure> DispatchBatch(
        const Services::Internal::NotificationBatch& batch);

    /// Gives `newSubscriber` the subscriptions of `oldSubscriber`, after dropping its own.
    void ReplaceSubscriber(const INotificationSubscriber* oldSubscriber,
                           INotificationSubscriber* newSubscriber);
    bool HasSubscribersFor(const NotificationNameId& notificationNameId) const;
    String GetNotificationName(const NotificationNameId& notificationNameId) const;
    NotificationNameId GetNotificationNameId(const String& notificationName) const;

    NotificationDispatcherId GetDispatcherId() const { return dispatcherId; }
    NotificationNameId GetExceptionNotificationNameId() const { return exceptionNotificationNameId; }
    /// "Kiv.System.Nm.ExceptionDuringNotify." followed by the name of the process's AppDomain.
    static String GetExceptionNotificationName();

    /// Finds this process's dispatcher and delivers to it, unless it is leaving: the lookup still answers
    /// while the destructor runs, so a delivery and the destructor meet at a gate outside the object.
    static void DispatchToProcessDispatcher(const Notification& notification,
                                            const std::vector<NotificationNameId>& notificationNameIds);
    /// With the ids as they cross the wire, without a converted copy of them.
    static void DispatchToProcessDispatcher(const Notification& notification,
                                            const std::vector<std::uint32_t>& notificationNameIds);
    /// The same for a batch; a dispatcher that has left answers with no failures.
    static std::vector<Services::Internal::DispatchFailure> DispatchBatchToProcessDispatcher(
        const Services::Internal::NotificationBatch& batch);

private:
    void PublishService();
    void GetDispatcherManagerService();
    void GetNotificationManagerInfoService();
    void GetNotificationSendingService();
    void RegisterAtDispatcherManager();
    void UnregisterAtDispatcherManager();
    void RegisterExceptionNotification();
    void UnregisterExceptionNotification();
    void SendExceptionNotification(const String& message);
    void ReportExceptionDuringDispatch(const Notification& notification, const String& exceptionText);
    void AddSubscription(NotificationNameId notificationNameId, INotificationSubscriber* subscriber);
    void RemoveSubscription(NotificationNameId notificationNameId, INotificationSubscriber* subscriber);
    void RegisterNotificationDispatch(NotificationNameId notificationNameId);
    void RemoveNotificationDispatchIfNoSubscribers(NotificationNameId notificationNameId);
    void UnsubscribeFromAllUnsynced(INotificationSubscriber* subscriber);
    template <class TId>
    void DeliverUnsynced(const Notification& notification, const TId* notificationNameIds, std::size_t count);
    void ThrowIfNotificationNameIsInvalid(const String& notificationName) const;
    void ThrowIfNotificationNameIdIsInvalid(NotificationNameId notificationNameId) const;
    void ThrowIfSubscriberIsInvalid(const INotificationSubscriber* subscriber) const;
    void ThrowIfAlreadySubscribed(const String& notificationName, NotificationNameId notificationNameId,
                                  INotificationSubscriber* subscriber) const;
    void ThrowIfNotSubscribed(NotificationNameId notificationNameId,
                              INotificationSubscriber* subscriber) const;

    NotificationDispatcherId dispatcherId;
    std::shared_ptr<Services::Internal::INotificationDispatcherManagerService> dispatcherManagerService;
    std::shared_ptr<Services::Internal::INotificationManagerInfoService> notificationManagerInfoService;
    std::shared_ptr<Services::Internal::INotificationSendingService> notificationSendingService;
    NotificationSubscriptionRepository subscriptionRepository;
    mutable Commons::Threading::Mutex dispatchMutex;
    /// The subscribers of the deliveries under way, guarded by dispatchMutex: kept between deliveries so
    /// that matching allocates nothing once it has grown, and a delivery nested in a subscriber's Notify
    /// takes the entries behind the outer one's and cuts them off when it ends.
    std::vector<NotificationSubscriptionRepository::SubscriptionInfo> snapshots;
    NotificationNameId exceptionNotificationNameId;
};
}  // namespace Kiv::System::Nm::Internal::NotificationDispatcher
