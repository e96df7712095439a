#include <Nm/INotificationSubscriber.h>
#include <Nm/Internal/NotificationDispatcher/NotificationDispatcher.h>
#include <Nm/Notification.h>
#include <Nm/Services/Internal/INotificationDispatcherManagerService.h>
#include <Nm/Services/Internal/INotificationManagerInfoService.h>
#include <Nm/Services/Internal/INotificationSendingService.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>
#include <Nm/Services/ServiceValues.h>
#include <Nm/SpecializedPayload.h>
#include <Nm/StringPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/DateTime.h>
#include <Kiv/Exceptions.h>
#include <Kiv/Singleton.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <exception>
#include <mutex>
#include <numeric>
#include <shared_mutex>

namespace Kiv::System::Nm::Internal::NotificationDispatcher
{
using namespace Services::Internal;
using Commons::Logging::LogLevel;
using Commons::Threading::Mutex;
using Services::ToString;
using Services::ToTulString;

namespace
{
const String& GetAppDomainName()
{
    return Commons::Singleton<Commons::AppDomain>::GetInstance().GetName();
}

// Deliveries hold the gate shared; the destructor takes it alone once it has left the broker, so that it
// waits for the deliveries under way and those that come later find no dispatcher.
std::shared_mutex& DeliveryGate()
{
    static std::shared_mutex gate;
    return gate;
}

std::atomic<NotificationDispatcher*> liveDispatcher{nullptr};
// A subscriber may dispose the manager from its Notify: that destructor can't wait for its own delivery.
thread_local int deliveriesOnThisThread = 0;

struct OnThisThread
{
    OnThisThread() { ++deliveriesOnThisThread; }
    ~OnThisThread() { --deliveriesOnThisThread; }
    OnThisThread(const OnThisThread&) = delete;
    OnThisThread& operator=(const OnThisThread&) = delete;
};

/// The process's dispatcher, with the gate held shared (unless this thread delivers already), or null
/// once it has left the broker: as for a process that has gone, a notification is not its any more.
NotificationDispatcher* EnterDelivery(std::shared_lock<std::shared_mutex>& gate)
{
    if (deliveriesOnThisThread == 0)
    {
        gate.lock();
    }
    NotificationDispatcher& dispatcher = NotificationDispatcher::GetInstance();
    return &dispatcher == liveDispatcher.load() ? &dispatcher : nullptr;
}

DispatchFailure MakeFailure(std::size_t index, const char* text)
{
    DispatchFailure failure;
    failure.index = static_cast<std::uint32_t>(index);
    // A longer text is cut: the answer carries at most what fits.
    failure.message = TulString<512>(text, std::min(std::strlen(text), TulString<512>::MaxStringSize - 1));
    return failure;
}
}  // namespace

NotificationDispatcher::NotificationDispatcher()
    : dispatcherId(0), dispatchMutex(true), exceptionNotificationNameId(0)
{
    PublishService();
    GetDispatcherManagerService();
    GetNotificationManagerInfoService();
    GetNotificationSendingService();
    RegisterAtDispatcherManager();
    RegisterExceptionNotification();
    liveDispatcher.store(this);
}

NotificationDispatcher::~NotificationDispatcher()
{
    try
    {
        UnregisterExceptionNotification();
        UnregisterAtDispatcherManager();
    }
    catch (const Exception& e)
    {
        Log(LogLevel::Error, "Caught exception in destructor of NotificationDispatcher: {0}", e.ToString());
    }
    catch (...)
    {
        Log(LogLevel::Error, "Caught exception in destructor of NotificationDispatcher");
    }
    // A delivery that the broker began before this dispatcher left may still be running on another
    // thread, or be about to enter; the members it would use go only once it has ended or turned away.
    std::unique_lock<std::shared_mutex> waitForDeliveries(DeliveryGate(), std::defer_lock);
    if (deliveriesOnThisThread == 0)
    {
        waitForDeliveries.lock();
    }
    liveDispatcher.store(nullptr);
}

void NotificationDispatcher::DispatchToProcessDispatcher(
    const Notification& notification, const std::vector<NotificationNameId>& notificationNameIds)
{
    std::shared_lock<std::shared_mutex> gate(DeliveryGate(), std::defer_lock);
    NotificationDispatcher* dispatcher = EnterDelivery(gate);
    if (dispatcher == nullptr)
    {
        return;
    }
    OnThisThread delivering;
    dispatcher->Dispatch(notification, notificationNameIds);
}

void NotificationDispatcher::DispatchToProcessDispatcher(
    const Notification& notification, const std::vector<std::uint32_t>& notificationNameIds)
{
    std::shared_lock<std::shared_mutex> gate(DeliveryGate(), std::defer_lock);
    NotificationDispatcher* dispatcher = EnterDelivery(gate);
    if (dispatcher == nullptr)
    {
        return;
    }
    OnThisThread delivering;
    Mutex::ScopedLock lock(dispatcher->dispatchMutex);
    dispatcher->DeliverUnsynced(notification, notificationNameIds.data(), notificationNameIds.size());
}

std::vector<DispatchFailure> NotificationDispatcher::DispatchBatchToProcessDispatcher(
    const NotificationBatch& batch)
{
    std::shared_lock<std::shared_mutex> gate(DeliveryGate(), std::defer_lock);
    NotificationDispatcher* dispatcher = EnterDelivery(gate);
    if (dispatcher == nullptr)
    {
        return {};
    }
    OnThisThread delivering;
    return dispatcher->DispatchBatch(batch);
}

String NotificationDispatcher::GetExceptionNotificationName()
{
    return "Kiv.System.Nm.ExceptionDuringNotify." + GetAppDomainName();
}

void NotificationDispatcher::PublishService()
{
    // From here on the broker finds this process's dispatcher under the AppDomain's name.
    Tul::ServiceManager::PublishService(
        GetAppDomainName().c_str(), NotificationDispatcherServiceProxyFactory::GetInstance().GetServiceName(),
        NotificationDispatcherServiceFactory::GetInstance());
}

void NotificationDispatcher::GetDispatcherManagerService()
{
    dispatcherManagerService = Services::FetchService<INotificationDispatcherManagerService,
                                                      NotificationDispatcherManagerServiceProxyFactory>();
    if (!dispatcherManagerService)
    {
        throw InvalidOperationException(
            "NotificationDispatcher: Could not get INotificationDispatcherManagerService");
    }
}

void NotificationDispatcher::GetNotificationManagerInfoService()
{
    notificationManagerInfoService =
        Services::FetchService<INotificationManagerInfoService, NotificationManagerInfoServiceProxyFactory>();
    if (!notificationManagerInfoService)
    {
        throw InvalidOperationException(
            "NotificationDispatcher: Could not get INotificationManagerInfoService");
    }
}

void NotificationDispatcher::GetNotificationSendingService()
{
    notificationSendingService =
        Services::FetchService<INotificationSendingService, NotificationSendingServiceProxyFactory>();
    if (!notificationSendingService)
    {
        throw InvalidOperationException("NotificationDispatcher: Could not get INotificationSendingService");
    }
}

void NotificationDispatcher::RegisterAtDispatcherManager()
{
    dispatcherId = NotificationDispatcherId(
        dispatcherManagerService->RegisterDispatcher(ToTulString(GetAppDomainName())));
}

void NotificationDispatcher::UnregisterAtDispatcherManager()
{
    dispatcherManagerService->UnregisterDispatcher(dispatcherId.GetValue());
    dispatcherId = NotificationDispatcherId(0);
}

void NotificationDispatcher::RegisterExceptionNotification()
{
    if (exceptionNotificationNameId != NotificationNameId(0))
    {
        return;
    }
    const std::uint16_t payloadTypeId = notificationManagerInfoService->GetPayloadTypeId(
        ToTulString(SpecializedPayload<StringPayload>::GetPayloadTypeName()));
    const TulString<512> name = ToTulString(GetExceptionNotificationName());
    const TulString<512> sender = ToTulString("Notification Manager");
    exceptionNotificationNameId = NotificationNameId(
        notificationSendingService->RegisterNotification(name, sender, Severity::Error, payloadTypeId));
}

void NotificationDispatcher::UnregisterExceptionNotification()
{
    if (exceptionNotificationNameId != NotificationNameId(0))
    {
        notificationSendingService->UnregisterNotification(exceptionNotificationNameId.GetValue());
        exceptionNotificationNameId = NotificationNameId(0);
    }
}

void NotificationDispatcher::Dispatch(const Notification& notification,
                                      const std::vector<NotificationNameId>& notificationNameIds)
{
    Mutex::ScopedLock lock(dispatchMutex);
    DeliverUnsynced(notification, notificationNameIds.data(), notificationNameIds.size());
}

std::vector<DispatchFailure> NotificationDispatcher::DispatchBatch(const NotificationBatch& batch)
{
    const std::size_t count = batch.notifications.size();
    const std::uint64_t ids =
        std::accumulate(batch.nameIdCounts.begin(), batch.nameIdCounts.end(), std::uint64_t{0});
    if (batch.nameIdCounts.size() != count || ids != batch.nameIds.size() ||
        std::find(batch.notifications.begin(), batch.notifications.end(), nullptr) !=
            batch.notifications.end())
    {
        throw ArgumentException(
            "A batch of {0} notifications with {1} id counts for {2} ids can't be delivered", count,
            batch.nameIdCounts.size(), batch.nameIds.size());
    }
    std::vector<DispatchFailure> failures;
    Mutex::ScopedLock lock(dispatchMutex);
    const std::uint32_t* nameIds = batch.nameIds.data();
    for (std::size_t index = 0; index < count; ++index)
    {
        try
        {
            DeliverUnsynced(*batch.notifications[index], nameIds, batch.nameIdCounts[index]);
        }
        catch (const Exception& e)
        {
            failures.push_back(MakeFailure(index, e.ToString().c_str()));
        }
        catch (const std::exception& e)
        {
            failures.push_back(MakeFailure(index, e.what()));
        }
        catch (...)
        {
            failures.push_back(MakeFailure(index, "unknown exception type"));
        }
        nameIds += batch.nameIdCounts[index];
    }
    return failures;
}

template <class TId>
void NotificationDispatcher::DeliverUnsynced(const Notification& notification, const TId* notificationNameIds,
                                             std::size_t count)
{
    // Entries from `start` on are this delivery's; they are cut off however it ends.
    const std::size_t start = snapshots.size();
    struct CutBack
    {
        std::vector<NotificationSubscriptionRepository::SubscriptionInfo>& snapshots;
        std::size_t start;
        ~CutBack()
        {
            snapshots.erase(snapshots.begin() + static_cast<std::ptrdiff_t>(start), snapshots.end());
        }
    } cutBack{snapshots, start};
    subscriptionRepository.AppendSubscribersFor(notificationNameIds, count, snapshots);
    const std::size_t end = snapshots.size();
    // By index: a nested delivery may grow the buffer and move it.
    for (std::size_t index = start; index < end; ++index)
    {
        try
        {
            snapshots[index].subscriber->Notify(notification);
        }
        catch (const Exception& e)
        {
            ReportExceptionDuringDispatch(notification, e.ToString());
        }
        catch (const std::exception& e)
        {
            ReportExceptionDuringDispatch(notification, e.what());
        }
        catch (...)
        {
            ReportExceptionDuringDispatch(notification, "unknown exception type");
        }
    }
}

void NotificationDispatcher::ReportExceptionDuringDispatch(const Notification& notification,
                                                           const String& exceptionText)
{
    const String name = GetNotificationName(notification.GetNotificationNameId());
    const String text =
        String::Format("Caught an exception during dispatching notification '{}': {}", name, exceptionText);
    Log(LogLevel::Error, "{0}", text);
    SendExceptionNotification(text);
}

void NotificationDispatcher::SendExceptionNotification(const String& message)
{
    const StringPayload payload(message);
    notificationSendingService->SendNotification(exceptionNotificationNameId.GetValue(),
                                                 DateTime::GetUtcNow(), payload.GetAsRawPayloadType());
}

NotificationNameId NotificationDispatcher::Subscribe(const String& notificationName,
                                                     INotificationSubscriber* subscriber)
{
    ThrowIfNotificationNameIsInvalid(notificationName);
    ThrowIfSubscriberIsInvalid(subscriber);
    // Asked without a lock: during set-up an unknown name is made here, afterwards it is refused.
    const NotificationNameId notificationNameId = GetNotificationNameId(notificationName);
    ThrowIfAlreadySubscribed(notificationName, notificationNameId, subscriber);
    Mutex::ScopedLock lock(dispatchMutex);
    // The broker first: if it refuses, no subscription has been added.
    RegisterNotificationDispatch(notificationNameId);
    AddSubscription(notificationNameId, subscriber);
    return notificationNameId;
}

void NotificationDispatcher::Unsubscribe(NotificationNameId notificationNameId,
                                         INotificationSubscriber* subscriber)
{
    ThrowIfNotificationNameIdIsInvalid(notificationNameId);
    ThrowIfSubscriberIsInvalid(subscriber);
    ThrowIfNotSubscribed(notificationNameId, subscriber);
    Mutex::ScopedLock lock(dispatchMutex);
    RemoveSubscription(notificationNameId, subscriber);
    RemoveNotificationDispatchIfNoSubscribers(notificationNameId);
}

void NotificationDispatcher::UnsubscribeFromAll(INotificationSubscriber* subscriber)
{
    if (subscriber == nullptr)
    {
        return;
    }
    Mutex::ScopedLock lock(dispatchMutex);
    UnsubscribeFromAllUnsynced(subscriber);
}

void NotificationDispatcher::UnsubscribeFromAllUnsynced(INotificationSubscriber* subscriber)
{
    for (const NotificationNameId id : subscriptionRepository.GetSubscribedNotificationNameIds(subscriber))
    {
        RemoveSubscription(id, subscriber);
        RemoveNotificationDispatchIfNoSubscribers(id);
    }
}

void NotificationDispatcher::ReplaceSubscriber(const INotificationSubscriber* oldSubscriber,
                                               INotificationSubscriber* newSubscriber)
{
    Mutex::ScopedLock lock(dispatchMutex);
    UnsubscribeFromAllUnsynced(newSubscriber);
    subscriptionRepository.ReplaceSubscriber(oldSubscriber, newSubscriber);
}

bool NotificationDispatcher::HasSubscribersFor(const NotificationNameId& notificationNameId) const
{
    return subscriptionRepository.Contains(notificationNameId);
}

String NotificationDispatcher::GetNotificationName(const NotificationNameId& notificationNameId) const
{
    return ToString(notificationManagerInfoService->GetNotificationName(notificationNameId.GetValue()));
}

NotificationNameId NotificationDispatcher::GetNotificationNameId(const String& notificationName) const
{
    return NotificationNameId(
        notificationManagerInfoService->GetNotificationNameId(ToTulString(notificationName)));
}

void NotificationDispatcher::AddSubscription(NotificationNameId notificationNameId,
                                             INotificationSubscriber* subscriber)
{
    subscriptionRepository.AddSubscription(notificationNameId, subscriber);
}

void NotificationDispatcher::RemoveSubscription(NotificationNameId notificationNameId,
                                                INotificationSubscriber* subscriber)
{
    subscriptionRepository.RemoveSubscription(notificationNameId, subscriber);
}

void NotificationDispatcher::RegisterNotificationDispatch(NotificationNameId notificationNameId)
{
    dispatcherManagerService->RegisterNotificationDispatch(notificationNameId.GetValue(),
                                                           dispatcherId.GetValue());
}

void NotificationDispatcher::RemoveNotificationDispatchIfNoSubscribers(NotificationNameId notificationNameId)
{
    if (!subscriptionRepository.Contains(notificationNameId))
    {
        dispatcherManagerService->UnregisterNotificationDispatch(notificationNameId.GetValue(),
                                                                 dispatcherId.GetValue());
    }
}

void NotificationDispatcher::ThrowIfNotificationNameIsInvalid(const String& notificationName) const
{
    if (notificationName.empty())
    {
        throw ArgumentException::Create("notificationName", notificationName,
                                        "The supplied notification name is invalid.");
    }
}

void NotificationDispatcher::ThrowIfNotificationNameIdIsInvalid(NotificationNameId notificationNameId) const
{
    if (notificationNameId == NotificationNameId(0))
    {
        throw ArgumentException::Create("notificationNameId", notificationNameId,
                                        "The supplied notification name id is invalid.");
    }
}

void NotificationDispatcher::ThrowIfSubscriberIsInvalid(const INotificationSubscriber* subscriber) const
{
    if (subscriber == nullptr)
    {
        throw ArgumentException::Create("subscriber", static_cast<const void*>(subscriber),
                                        "The supplied pointer is invalid.");
    }
}

void NotificationDispatcher::ThrowIfAlreadySubscribed(const String& notificationName,
                                                      NotificationNameId notificationNameId,
                                                      INotificationSubscriber* subscriber) const
{
    if (subscriptionRepository.Contains(notificationNameId, subscriber))
    {
        throw ArgumentException::Create(
            "notificationName", notificationName,
            "The supplied subscriber is already subscribed to this notification.");
    }
}

void NotificationDispatcher::ThrowIfNotSubscribed(NotificationNameId notificationNameId,
                                                  INotificationSubscriber* subscriber) const
{
    if (!subscriptionRepository.Contains(notificationNameId, subscriber))
    {
        throw ArgumentException::Create(
            "notificationNameId", notificationNameId,
            String::Format("The supplied subscriber is not subscribed to the referenced notification \"{}\".",
                           GetNotificationName(notificationNameId)));
    }
}
}  // namespace Kiv::System::Nm::Internal::NotificationDispatcher
