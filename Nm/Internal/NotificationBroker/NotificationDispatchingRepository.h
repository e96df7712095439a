#pragma once

#include <Nm/IdType.h>

#include <Kiv/Export.h>
#include <Kiv/Threading/Mutex.h>

#include <optional>
#include <unordered_map>
#include <vector>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// The dispatch table: which dispatcher wants which name id. Read once per notification by the broker
/// thread, so the look-up by name id is a hash look-up.
class KIV_API NotificationDispatchingRepository
{
public:
    NotificationDispatchingRepository();

    void Add(NotificationNameId nameId, NotificationDispatcherId dispatcherId);
    void Remove(NotificationNameId nameId, NotificationDispatcherId dispatcherId);
    bool Contains(NotificationNameId nameId) const;
    bool Contains(NotificationNameId nameId, NotificationDispatcherId dispatcherId) const;
    /// One row that a notification hits, for the broker thread's batches: `sequence` keeps the order of
    /// the name ids asked for.
    struct Match
    {
        NotificationDispatcherId dispatcherId;
        std::uint32_t notification = 0;
        std::uint32_t sequence = 0;
        NotificationNameId nameId;
        bool operator<(const Match& other) const noexcept
        {
            return dispatcherId != other.dispatcherId   ? dispatcherId < other.dispatcherId
                   : notification != other.notification ? notification < other.notification
                                                        : sequence < other.sequence;
        }
    };
    /// Appends the rows of `nameIds` to `matches` as hits of notification `notification`, without
    /// allocating once `matches` has room. Sorted, they give per dispatcher in ascending id the name ids
    /// it wants of each notification, in the order asked for.
    void AppendMatches(const std::vector<NotificationNameId>& nameIds, std::uint32_t notification,
                       std::vector<Match>& matches) const;
    /// Erases every row of the dispatcher, one whose process has gone; returns how many there were.
    std::size_t RemoveAll(NotificationDispatcherId dispatcherId);

    [[noreturn]] static void OnAddDuplicate(NotificationNameId nameId, NotificationDispatcherId dispatcherId);
    [[noreturn]] static void OnRemoveUnknown(NotificationNameId nameId,
                                             NotificationDispatcherId dispatcherId);

private:
    using Rows = std::unordered_multimap<NotificationNameId, NotificationDispatcherId>;

    std::optional<Rows::const_iterator> Find(NotificationNameId nameId,
                                             NotificationDispatcherId dispatcherId) const;
    bool ContainsImpl(NotificationNameId nameId, NotificationDispatcherId dispatcherId) const;

    Rows rows;
    mutable Commons::Threading::Mutex mutex;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
