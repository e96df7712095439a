#include <Nm/Internal/NotificationDispatcher/NotificationSubscriptionRepository.h>

#include <Kiv/Exceptions.h>

#include <algorithm>
#include <cstdint>

namespace Kiv::System::Nm::Internal::NotificationDispatcher
{
using Commons::Threading::Mutex;

namespace
{
std::uintptr_t AsNumber(const INotificationSubscriber* subscriber)
{
    return reinterpret_cast<std::uintptr_t>(subscriber);
}

const void* AsPointer(const INotificationSubscriber* subscriber)
{
    return static_cast<const void*>(subscriber);
}

NotificationNameId AsId(NotificationNameId id)
{
    return id;
}

NotificationNameId AsId(std::uint32_t id)
{
    return NotificationNameId(id);
}

using SubscriptionInfo = NotificationSubscriptionRepository::SubscriptionInfo;
using Snapshot = std::vector<SubscriptionInfo>;

/// Each subscriber of [begin, end) once, with its lowest sequence, then in order of sequence; sorting
/// in place allocates nothing.
Snapshot::iterator KeepFirstOfEachSubscriber(Snapshot::iterator begin, Snapshot::iterator end)
{
    std::sort(begin, end,
              [](const SubscriptionInfo& a, const SubscriptionInfo& b)
              {
                  if (a.subscriber != b.subscriber)
                  {
                      return AsNumber(a.subscriber) < AsNumber(b.subscriber);
                  }
                  return a.sequence < b.sequence;
              });
    end = std::unique(begin, end,
                      [](const SubscriptionInfo& a, const SubscriptionInfo& b)
                      { return a.subscriber == b.subscriber; });
    std::sort(begin, end,
              [](const SubscriptionInfo& a, const SubscriptionInfo& b) { return a.sequence < b.sequence; });
    return end;
}
}  // namespace

NotificationSubscriptionRepository::NotificationSubscriptionRepository() : repositoryMutex(true)
{
    subscriptions.max_load_factor(1.0F);
}

void NotificationSubscriptionRepository::AddSubscription(NotificationNameId id,
                                                         INotificationSubscriber* subscriber)
{
    Mutex::ScopedLock lock(repositoryMutex);
    if (subscriber == nullptr)
    {
        OnAddNullPointer(id);
    }
    if (ContainsImpl(id, subscriber))
    {
        OnAddDuplicateEntry(id, subscriber);
    }
    subscriptions.emplace(id, SubscriptionInfo(subscriber, ++lastSequence));
}

void NotificationSubscriptionRepository::RemoveSubscription(NotificationNameId id,
                                                            INotificationSubscriber* subscriber)
{
    Mutex::ScopedLock lock(repositoryMutex);
    auto entry = Find(id, subscriber);
    if (!entry)
    {
        OnRemoveUnknownSubscription(id, subscriber);
    }
    subscriptions.erase(*entry);
}

void NotificationSubscriptionRepository::ReplaceSubscriber(const INotificationSubscriber* oldSubscriber,
                                                           INotificationSubscriber* newSubscriber)
{
    Mutex::ScopedLock lock(repositoryMutex);
    for (auto& entry : subscriptions)
    {
        if (entry.second.subscriber == oldSubscriber)
        {
            entry.second.subscriber = newSubscriber;
            entry.second.sequence = ++lastSequence;
        }
    }
}

bool NotificationSubscriptionRepository::Contains(NotificationNameId id) const
{
    Mutex::ScopedLock lock(repositoryMutex);
    return subscriptions.find(id) != subscriptions.end();
}

bool NotificationSubscriptionRepository::Contains(NotificationNameId id,
                                                  INotificationSubscriber* subscriber) const
{
    Mutex::ScopedLock lock(repositoryMutex);
    return ContainsImpl(id, subscriber);
}

bool NotificationSubscriptionRepository::ContainsImpl(NotificationNameId id,
                                                      const INotificationSubscriber* subscriber) const
{
    return Find(id, subscriber).has_value();
}

std::optional<NotificationSubscriptionRepository::Table::const_iterator>
NotificationSubscriptionRepository::Find(NotificationNameId id,
                                         const INotificationSubscriber* subscriber) const
{
    auto range = subscriptions.equal_range(id);
    for (auto entry = range.first; entry != range.second; ++entry)
    {
        if (entry->second.subscriber == subscriber)
        {
            return entry;
        }
    }
    return std::nullopt;
}

std::vector<NotificationNameId> NotificationSubscriptionRepository::GetSubscribedNotificationNameIds(
    const INotificationSubscriber* subscriber) const
{
    Mutex::ScopedLock lock(repositoryMutex);
    std::vector<NotificationNameId> ids;
    for (const auto& entry : subscriptions)
    {
        if (entry.second.subscriber == subscriber)
        {
            ids.push_back(entry.first);
        }
    }
    return ids;
}

void NotificationSubscriptionRepository::GetSubscriptionInfosFor(const NotificationNameId& id,
                                                                 std::vector<SubscriptionInfo>& infos) const
{
    auto range = subscriptions.equal_range(id);
    for (auto entry = range.first; entry != range.second; ++entry)
    {
        infos.push_back(entry->second);
    }
}

std::vector<NotificationSubscriptionRepository::SubscriptionInfo>
NotificationSubscriptionRepository::GetSubscriptionInfosFor(const std::vector<NotificationNameId>& ids) const
{
    std::vector<SubscriptionInfo> infos;
    Mutex::ScopedLock lock(repositoryMutex);
    for (const NotificationNameId& id : ids)
    {
        GetSubscriptionInfosFor(id, infos);
    }
    return infos;
}

std::vector<NotificationSubscriptionRepository::SubscriptionInfo>
NotificationSubscriptionRepository::GetSubscribersFor(const std::vector<NotificationNameId>& ids) const
{
    std::vector<SubscriptionInfo> snapshot;
    AppendSubscribersFor(ids.data(), ids.size(), snapshot);
    return snapshot;
}

template <class TId>
static void AppendSubscribers(const NotificationSubscriptionRepository::Table& subscriptions, const TId* ids,
                              std::size_t count, Snapshot& snapshot)
{
    const std::size_t start = snapshot.size();
    for (std::size_t index = 0; index < count; ++index)
    {
        const auto range = subscriptions.equal_range(AsId(ids[index]));
        for (auto entry = range.first; entry != range.second; ++entry)
        {
            snapshot.push_back(entry->second);
        }
    }
    snapshot.erase(
        KeepFirstOfEachSubscriber(snapshot.begin() + static_cast<std::ptrdiff_t>(start), snapshot.end()),
        snapshot.end());
}

void NotificationSubscriptionRepository::AppendSubscribersFor(const NotificationNameId* ids,
                                                              std::size_t count,
                                                              std::vector<SubscriptionInfo>& snapshot) const
{
    Mutex::ScopedLock lock(repositoryMutex);
    AppendSubscribers(subscriptions, ids, count, snapshot);
}

void NotificationSubscriptionRepository::AppendSubscribersFor(const std::uint32_t* ids, std::size_t count,
                                                              std::vector<SubscriptionInfo>& snapshot) const
{
    Mutex::ScopedLock lock(repositoryMutex);
    AppendSubscribers(subscriptions, ids, count, snapshot);
}

std::vector<INotificationSubscriber*> NotificationSubscriptionRepository::GetSubscriberPointersFor(
    const std::vector<NotificationNameId>& ids) const
{
    const std::vector<SubscriptionInfo> infos = GetSubscribersFor(ids);
    std::vector<INotificationSubscriber*> pointers;
    pointers.reserve(infos.size());
    for (const SubscriptionInfo& info : infos)
    {
        pointers.push_back(info.subscriber);
    }
    return pointers;
}

void NotificationSubscriptionRepository::RemoveDuplicateSubSubscribers(
    std::vector<SubscriptionInfo>& infos) const
{
    std::sort(infos.begin(), infos.end(),
              [](const SubscriptionInfo& a, const SubscriptionInfo& b)
              {
                  if (a.subscriber != b.subscriber)
                  {
                      return AsNumber(a.subscriber) < AsNumber(b.subscriber);
                  }
                  return a.sequence < b.sequence;
              });
    infos.erase(std::unique(infos.begin(), infos.end(),
                            [](const SubscriptionInfo& a, const SubscriptionInfo& b)
                            { return a.subscriber == b.subscriber; }),
                infos.end());
}

void NotificationSubscriptionRepository::SortSubscriptionInfosBySequence(
    std::vector<SubscriptionInfo>& infos) const
{
    std::sort(infos.begin(), infos.end(),
              [](const SubscriptionInfo& a, const SubscriptionInfo& b) { return a.sequence < b.sequence; });
}

void NotificationSubscriptionRepository::OnAddNullPointer(NotificationNameId id) const
{
    throw InvalidOperationException(
        "NotificationSubscriptionRepository: Tried to add subscription to nullptr with "
        "notificationNameId={0}",
        id);
}

void NotificationSubscriptionRepository::OnAddDuplicateEntry(NotificationNameId id,
                                                             const INotificationSubscriber* subscriber) const
{
    throw InvalidOperationException(
        "NotificationSubscriptionRepository: Tried to add duplicate subscription (notificationNameId={0}, "
        "subscriber={1})",
        id, AsPointer(subscriber));
}

void NotificationSubscriptionRepository::OnRemoveUnknownSubscription(
    NotificationNameId id, const INotificationSubscriber* subscriber) const
{
    throw InvalidOperationException(
        "NotificationSubscriptionRepository: Tried to remove unknown subsciption (notificationNameId={0}, "
        "subscriber={1})",
        id, AsPointer(subscriber));
}
}  // namespace Kiv::System::Nm::Internal::NotificationDispatcher
