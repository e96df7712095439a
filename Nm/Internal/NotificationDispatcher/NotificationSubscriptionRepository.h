#pragma once

#include <Nm/IdType.h>

#include <Kiv/Export.h>

#include <Kiv/Threading/Mutex.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

namespace Kiv::System::Nm
{
class INotificationSubscriber;
}

namespace Kiv::System::Nm::Internal::NotificationDispatcher
{
/// Which subscriber wants which name id, with a sequence number per subscription that fixes the order of
/// delivery: subscribers are called in the order of their earliest matching subscription.
class KIV_API NotificationSubscriptionRepository
{
public:
    struct SubscriptionInfo
    {
        SubscriptionInfo(INotificationSubscriber* subscriber, int sequence)
            : subscriber(subscriber), sequence(sequence)
        {
        }

        INotificationSubscriber* subscriber;
        int sequence;
    };

    using Table = std::unordered_multimap<NotificationNameId, SubscriptionInfo>;

    NotificationSubscriptionRepository();

    void AddSubscription(NotificationNameId id, INotificationSubscriber* subscriber);
    void RemoveSubscription(NotificationNameId id, INotificationSubscriber* subscriber);
    /// Hands every subscription of `oldSubscriber` to `newSubscriber`, at the back of the order.
    void ReplaceSubscriber(const INotificationSubscriber* oldSubscriber,
                           INotificationSubscriber* newSubscriber);
    bool Contains(NotificationNameId id) const;
    bool Contains(NotificationNameId id, INotificationSubscriber* subscriber) const;
    bool ContainsImpl(NotificationNameId id, const INotificationSubscriber* subscriber) const;
    std::optional<Table::const_iterator> Find(NotificationNameId id,
                                              const INotificationSubscriber* subscriber) const;
    std::vector<NotificationNameId> GetSubscribedNotificationNameIds(
        const INotificationSubscriber* subscriber) const;
    void GetSubscriptionInfosFor(const NotificationNameId& id, std::vector<SubscriptionInfo>& infos) const;
    std::vector<SubscriptionInfo> GetSubscriptionInfosFor(const std::vector<NotificationNameId>& ids) const;
    /// Each subscriber of any of `ids` once, ordered by its lowest sequence among them.
    std::vector<SubscriptionInfo> GetSubscribersFor(const std::vector<NotificationNameId>& ids) const;
    /// The same, appended to `snapshot` behind what it holds, which stays as it was: a delivery keeps one
    /// buffer across notifications and a nested delivery appends behind the outer one's.
    void AppendSubscribersFor(const NotificationNameId* ids, std::size_t count,
                              std::vector<SubscriptionInfo>& snapshot) const;
    /// With the ids as they cross the wire.
    void AppendSubscribersFor(const std::uint32_t* ids, std::size_t count,
                              std::vector<SubscriptionInfo>& snapshot) const;
    std::vector<INotificationSubscriber*> GetSubscriberPointersFor(
        const std::vector<NotificationNameId>& ids) const;
    void RemoveDuplicateSubSubscribers(std::vector<SubscriptionInfo>& infos) const;
    void SortSubscriptionInfosBySequence(std::vector<SubscriptionInfo>& infos) const;

    [[noreturn]] void OnAddNullPointer(NotificationNameId id) const;
    [[noreturn]] void OnAddDuplicateEntry(NotificationNameId id,
                                          const INotificationSubscriber* subscriber) const;
    [[noreturn]] void OnRemoveUnknownSubscription(NotificationNameId id,
                                                  const INotificationSubscriber* subscriber) const;

private:
    Table subscriptions;
    int lastSequence = 0;
    mutable Commons::Threading::Mutex repositoryMutex;
};
}  // namespace Kiv::System::Nm::Internal::NotificationDispatcher
