#include <Nm/IPayload.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceProxyFactory.h>
#include <Nm/Services/NotificationManagerServiceFactory.h>
#include <Nm/Services/NotificationManagerServiceProxyFactory.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulAfterResponse.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>

#include <cerrno>
#include <memory>

#include <unistd.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Commons::Logging::LogLevel;

namespace
{
template <class TFactory, class TProxyFactory>
void Publish()
{
    auto& factory = TFactory::GetInstance();
    Tul::ServiceManager::PublishService(factory.GetServiceProviderName().c_str(),
                                        TProxyFactory::GetInstance().GetServiceName(), factory);
}

/// The process that makes the call being served, by the kernel's word; 0 for this process itself.
pid_t RemoteCallerPid()
{
    const pid_t pid = Tul::TulCallerIdentity::GetCurrentPid();
    return pid == getpid() ? 0 : pid;
}

template <class TIds>
String JoinIds(const TIds& ids)
{
    String text;
    for (const auto& id : ids)
    {
        text += String::Format(text.empty() ? "{0}" : ", {0}", id);
    }
    return text;
}
}  // namespace

NotificationBroker::NotificationBroker(std::uint32_t queueLength)
    : notificationQueue(queueLength),
      brokerThread(registrationManager.GetNotificationNames(), dispatcherManager.GetDispatcherRepository(),
                   dispatcherManager.GetDispatchTable(), notificationQueue),
      ownNotifications(GetLogger()),
      subscriptionState(SubscriptionState::Relaxed(registrationManager, ownNotifications)),
      departures([this](pid_t pid) { OnProcessDeparted(pid); })
{
    PublishServices();
}

NotificationBroker::~NotificationBroker()
{
    std::unique_lock<std::shared_mutex> lock(stopMutex);
    stopping = true;
}

void NotificationBroker::LazyInitialization() const
{
    // The first call of any kind registers the own notifications; it can't be done in the constructor,
    // since their payload type ids are found through the singleton, which is entered only afterwards.
    // Whoever comes while the first is still at it goes on without waiting, and a failure is not retried.
    if (!ownNotificationsInitialized.test_and_set())
    {
        ownNotifications.Initialize(const_cast<NotificationBroker&>(*this));
    }
}

void NotificationBroker::PublishServices() const
{
    using namespace Services::Internal;
    Publish<NotificationSendingServiceFactory, NotificationSendingServiceProxyFactory>();
    Publish<NotificationManagerInfoServiceFactory, NotificationManagerInfoServiceProxyFactory>();
    Publish<NotificationDispatcherManagerServiceFactory, NotificationDispatcherManagerServiceProxyFactory>();
    Publish<Services::NotificationManagerServiceFactory, Services::NotificationManagerServiceProxyFactory>();
    Publish<SubscriptionStateServiceFactory, SubscriptionStateServiceProxyFactory>();
}

NotificationNameId NotificationBroker::RegisterNotification(const String& notificationName,
                                                            const String& senderName, Severity severity,
                                                            PayloadTypeId payloadTypeId)
{
    LazyInitialization();
    EnsurePayloadTypeIdIsValid("payloadTypeId", payloadTypeId);
    EnsurePayloadTypeIdIsKnown("payloadTypeId", payloadTypeId);
    const NotificationNameId id =
        registrationManager.RegisterNotification(notificationName, senderName, severity, payloadTypeId);
    NoteHolding(senderName, NotificationDispatcherId(0), id);
    return id;
}

void NotificationBroker::UnregisterNotification(NotificationNameId notificationNameId)
{
    LazyInitialization();
    registrationManager.UnregisterNotification(notificationNameId);
    DropHolding(NotificationDispatcherId(0), notificationNameId);
}

NotificationId NotificationBroker::SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                                    const std::vector<TulVariant<512>>& payload)
{
    return SendNotification(notificationNameId, timestamp, std::vector<TulVariant<512>>(payload));
}

NotificationId NotificationBroker::SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                                    std::vector<TulVariant<512>>&& payload)
{
    LazyInitialization();
    std::shared_lock<std::shared_mutex> lock(stopMutex);
    return EnqueueNotification(notificationNameId, timestamp, std::move(payload));
}

NotificationBatchAnswer NotificationBroker::SendNotifications(const std::vector<BatchedNotification>& batch)
{
    LazyInitialization();
    NotificationBatchAnswer answer;
    answer.ids.reserve(batch.size());
    std::shared_lock<std::shared_mutex> lock(stopMutex);
    for (const BatchedNotification& notification : batch)
    {
        NotificationId id;
        try
        {
            id = EnqueueNotification(notification.notificationNameId, notification.timestamp,
                                     std::vector<TulVariant<512>>(notification.payload));
        }
        catch (...)
        {
            // The sender repeats this one alone, and so gets the failure in a single send's words; what
            // was taken before it must not be answered by an exception.
            answer.stop = NotificationBatchAnswer::Stop::Failed;
            return answer;
        }
        if (id.GetValue() == 0)
        {
            answer.stop = NotificationBatchAnswer::Stop::Refused;
            return answer;
        }
        answer.ids.push_back(id);
    }
    return answer;
}

NotificationId NotificationBroker::EnqueueNotification(NotificationNameId notificationNameId,
                                                       DateTime timestamp,
                                                       std::vector<TulVariant<512>>&& payload)
{
    if (stopping)
    {
        throw InvalidOperationException(
            "NotificationBroker: the broker is stopping and accepts no notification");
    }
    const SendInfo registration = registrationManager.GetSendInfo(notificationNameId);
    const NotificationId notificationId = notificationIdGenerator.Next();
    auto notification =
        std::make_shared<Notification>(notificationId, notificationNameId, timestamp, registration.severity,
                                       registration.payloadTypeId, std::move(payload));
    // A thread serving a remote sender delivers itself, after its response, if the broker's thread is
    // idle: waking that thread would cost more than the delivery.
    const auto pushed = notificationQueue.TryPush(std::move(notification), Tul::CanDeferUntilResponded());
    if (pushed == ThreadSafeQueue<Notification>::Pushed::Refused)
    {
        // A full queue is no failure: the notification is gone and its id stays used.
        return NotificationId(0);
    }
    statistics.OnSendNotification();
    if (pushed == ThreadSafeQueue<Notification>::Pushed::TakenOver)
    {
        brokerThread.HandOverAfterResponse(RemoteCallerPid());
    }
    return notificationId;
}

NotificationId NotificationBroker::SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                                    const IPayload& payload)
{
    return SendNotification(notificationNameId, timestamp, payload.GetAsRawPayloadType());
}

String NotificationBroker::GetNotificationName(NotificationNameId notificationNameId) const
{
    LazyInitialization();
    return registrationManager.GetNotificationName(notificationNameId);
}

NotificationNameId NotificationBroker::GetNotificationNameId(const String& notificationName)
{
    LazyInitialization();
    return GetSubscriptionState().GetNotificationNameId(notificationName);
}

std::vector<NotificationNameId> NotificationBroker::GetNotificationNameIdsByStatus(
    const NotificationRegistrationStatus& status) const
{
    LazyInitialization();
    return registrationManager.GetNotificationNameIdsByStatus(status);
}

std::vector<NotificationNameId> NotificationBroker::GetAllKnownNotificationNameIds() const
{
    LazyInitialization();
    return registrationManager.GetAllKnownNotificationNameIds();
}

NotificationRegistrationInfo NotificationBroker::GetNotificationRegistration(
    NotificationNameId notificationNameId) const
{
    LazyInitialization();
    return registrationManager.GetNotificationRegistration(notificationNameId);
}

PayloadTypeId NotificationBroker::GetPayloadTypeId(const String& payloadTypeName)
{
    LazyInitialization();
    return payloadTypes.GetPayloadTypeId(payloadTypeName);
}

String NotificationBroker::GetPayloadTypeName(const PayloadTypeId& payloadTypeId) const
{
    LazyInitialization();
    return payloadTypes.GetPayloadTypeName(payloadTypeId);
}

std::vector<String> NotificationBroker::GetPayloadTypeNames() const
{
    LazyInitialization();
    return payloadTypes.GetPayloadTypeNames();
}

std::uint64_t NotificationBroker::GetNumberOfSubmittedNotifications() const
{
    LazyInitialization();
    return statistics.GetNumberOfSendNotifications();
}

NotificationDispatcherId NotificationBroker::RegisterDispatcher(const String& dispatcherName)
{
    LazyInitialization();
    const pid_t pid = RemoteCallerPid();
    if (pid == 0)
    {
        return dispatcherManager.RegisterDispatcher(dispatcherName);
    }
    const NotificationDispatcherId id = dispatcherManager.RegisterDispatcher(dispatcherName, pid);
    NoteHolding(dispatcherName, id, NotificationNameId(0));
    return id;
}

void NotificationBroker::UnregisterDispatcher(NotificationDispatcherId dispatcherId)
{
    LazyInitialization();
    dispatcherManager.UnregisterDispatcher(dispatcherId);
    DropHolding(dispatcherId, NotificationNameId(0));
}

std::size_t NotificationBroker::CountWatchedProcesses() const
{
    return departures.Count();
}

void NotificationBroker::NoteHolding(const String& processName, NotificationDispatcherId dispatcherId,
                                     NotificationNameId registration)
{
    const pid_t pid = RemoteCallerPid();
    if (pid == 0)
    {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(holdingsMutex);
        if (NoteHoldingOf(pid, processName, dispatcherId, registration))
        {
            return;
        }
    }
    // It ended while its call was served: what it just made goes at once.
    OnProcessDeparted(pid);
}

bool NotificationBroker::NoteHoldingOf(pid_t pid, const String& processName,
                                       NotificationDispatcherId dispatcherId, NotificationNameId registration)
{
    Holdings& held = holdings[pid];
    // A dispatcher's name is its process's; a sender's name stands in until the dispatcher registers.
    if (dispatcherId != NotificationDispatcherId(0) || held.processName.empty())
    {
        held.processName = processName;
    }
    if (dispatcherId != NotificationDispatcherId(0))
    {
        held.dispatchers.insert(dispatcherId);
    }
    if (registration != NotificationNameId(0))
    {
        held.registrations.insert(registration);
    }
    if (departures.Watch(pid))
    {
        return true;
    }
    if (errno == ESRCH)
    {
        return false;
    }
    // Not to be watched (no pidfds here): what it holds stays, as it did before processes were watched.
    holdings.erase(pid);
    return true;
}

void NotificationBroker::DropHolding(NotificationDispatcherId dispatcherId, NotificationNameId registration)
{
    std::lock_guard<std::mutex> lock(holdingsMutex);
    for (auto held = holdings.begin(); held != holdings.end(); ++held)
    {
        if (held->second.dispatchers.erase(dispatcherId) + held->second.registrations.erase(registration) !=
            0)
        {
            if (held->second.Empty())
            {
                departures.Forget(held->first);
                holdings.erase(held);
            }
            return;
        }
    }
}

void NotificationBroker::OnProcessDeparted(pid_t pid)
{
    Holdings held;
    {
        std::lock_guard<std::mutex> lock(holdingsMutex);
        const auto found = holdings.find(pid);
        if (found == holdings.end())
        {
            return;
        }
        held = std::move(found->second);
        holdings.erase(found);
    }
    // As a clean leave would: each table is changed on its own, and what is gone already is passed over.
    std::size_t rows = 0;
    for (const NotificationDispatcherId id : held.dispatchers)
    {
        rows += dispatcherManager.RemoveDispatcher(id);
    }
    std::vector<String> names;
    for (const NotificationNameId id : held.registrations)
    {
        try
        {
            if (registrationManager.GetNotificationRegistration(id).GetStatus() ==
                NotificationRegistrationStatus::Registered)
            {
                registrationManager.UnregisterNotification(id);
                names.push_back(registrationManager.GetNotificationName(id));
            }
        }
        catch (const Exception& e)
        {
            Log(LogLevel::Error, "Could not unregister notification {0} of departed process {1}: {2}", id,
                pid, e.ToString());
        }
    }
    Log(LogLevel::Warning,
        "Process {0} ('{1}') left without unregistering; removed dispatcher [{2}] with {3} dispatch rows "
        "and the registrations [{4}]",
        pid, held.processName, JoinIds(held.dispatchers), rows, JoinIds(names));
}

void NotificationBroker::RegisterNotificationDispatch(NotificationNameId notificationNameId,
                                                      NotificationDispatcherId dispatcherId)
{
    LazyInitialization();
    // Where a subscription to what nobody registered is noticed.
    GetSubscriptionState().EnsureRegisteredNotificationNameId(notificationNameId);
    dispatcherManager.RegisterNotificationDispatch(notificationNameId, dispatcherId);
}

void NotificationBroker::UnregisterNotificationDispatch(NotificationNameId notificationNameId,
                                                        NotificationDispatcherId dispatcherId)
{
    LazyInitialization();
    dispatcherManager.UnregisterNotificationDispatch(notificationNameId, dispatcherId);
}

bool NotificationBroker::ContainsNotificationDispatch(NotificationNameId notificationNameId,
                                                      NotificationDispatcherId dispatcherId)
{
    LazyInitialization();
    return dispatcherManager.ContainsNotificationDispatch(notificationNameId, dispatcherId);
}

void NotificationBroker::StartDispatching()
{
    LazyInitialization();
    // The warnings' own notifications enter the queue before the thread starts.
    SetSubscriptionStateChecked();
    brokerThread.Start();
}

bool NotificationBroker::IsSubscriptionStateChecked() const
{
    LazyInitialization();
    return GetSubscriptionState().IsChecked();
}

void NotificationBroker::SetSubscriptionStateChecked()
{
    LazyInitialization();
    Log(LogLevel::Info, "Enabling checking of subscriptions");
    subscriptionState.Set(SubscriptionState::Checked(registrationManager, ownNotifications));
    WarnAboutSubscriptionsToNotRegisteredNotifications();
    WarnAboutSubscriptionsToUnregisteredNotifications();
}

void NotificationBroker::SetSubscriptionStateRelaxed()
{
    LazyInitialization();
    Log(LogLevel::Info, "Disabling checking of subscriptions");
    subscriptionState.Set(SubscriptionState::Relaxed(registrationManager, ownNotifications));
}

void NotificationBroker::WarnAboutSubscriptionsToNotRegisteredNotifications()
{
    registrationManager.WarnAboutSubscriptionsToNotRegistered(ownNotifications);
}

void NotificationBroker::WarnAboutSubscriptionsToUnregisteredNotifications()
{
    for (const NotificationNameId id :
         registrationManager.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Unregistered))
    {
        if (dispatcherManager.HasDispatcherFor(id))
        {
            ownNotifications.SendAndLogSubscribeToUnregistered(registrationManager.GetNotificationName(id));
        }
    }
}

void NotificationBroker::EnsurePayloadTypeIdIsValid(const String& argumentName,
                                                    const PayloadTypeId& payloadTypeId) const
{
    if (payloadTypeId == PayloadTypeId(0))
    {
        throw ArgumentException::Create(argumentName, payloadTypeId,
                                        "The supplied payload type id is invalid.");
    }
}

void NotificationBroker::EnsurePayloadTypeIdIsKnown(const String& argumentName,
                                                    const PayloadTypeId& payloadTypeId) const
{
    if (!payloadTypes.Contains(payloadTypeId))
    {
        throw ArgumentException::Create(argumentName, payloadTypeId,
                                        "The supplied payload type id is unknown.");
    }
}

SubscriptionState& NotificationBroker::GetSubscriptionState() const
{
    // Only the read of the pointer is guarded; the call runs without the holder's lock.
    return *subscriptionState.Get();
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
