#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>

#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Commons::Threading::Mutex;

NotificationDispatchingRepository::NotificationDispatchingRepository() : mutex(true) {}

void NotificationDispatchingRepository::Add(NotificationNameId nameId, NotificationDispatcherId dispatcherId)
{
    Mutex::ScopedLock lock(mutex);
    if (ContainsImpl(nameId, dispatcherId))
    {
        OnAddDuplicate(nameId, dispatcherId);
    }
    rows.emplace(nameId, dispatcherId);
}

void NotificationDispatchingRepository::Remove(NotificationNameId nameId,
                                               NotificationDispatcherId dispatcherId)
{
    Mutex::ScopedLock lock(mutex);
    const auto row = Find(nameId, dispatcherId);
    if (!row)
    {
        OnRemoveUnknown(nameId, dispatcherId);
    }
    rows.erase(*row);
}

bool NotificationDispatchingRepository::Contains(NotificationNameId nameId) const
{
    Mutex::ScopedLock lock(mutex);
    return rows.find(nameId) != rows.end();
}

bool NotificationDispatchingRepository::Contains(NotificationNameId nameId,
                                                 NotificationDispatcherId dispatcherId) const
{
    Mutex::ScopedLock lock(mutex);
    return ContainsImpl(nameId, dispatcherId);
}

void NotificationDispatchingRepository::AppendMatches(const std::vector<NotificationNameId>& nameIds,
                                                      std::uint32_t notification,
                                                      std::vector<Match>& matches) const
{
    Mutex::ScopedLock lock(mutex);
    std::uint32_t sequence = 0;
    for (const NotificationNameId& nameId : nameIds)
    {
        auto range = rows.equal_range(nameId);
        for (auto row = range.first; row != range.second; ++row)
        {
            matches.push_back(Match{row->second, notification, sequence++, nameId});
        }
    }
}

std::size_t NotificationDispatchingRepository::RemoveAll(NotificationDispatcherId dispatcherId)
{
    Mutex::ScopedLock lock(mutex);
    std::size_t removed = 0;
    for (auto row = rows.begin(); row != rows.end();)
    {
        if (row->second == dispatcherId)
        {
            row = rows.erase(row);
            ++removed;
        }
        else
        {
            ++row;
        }
    }
    return removed;
}

std::optional<NotificationDispatchingRepository::Rows::const_iterator>
NotificationDispatchingRepository::Find(NotificationNameId nameId,
                                        NotificationDispatcherId dispatcherId) const
{
    auto range = rows.equal_range(nameId);
    for (auto row = range.first; row != range.second; ++row)
    {
        if (row->second == dispatcherId)
        {
            return row;
        }
    }
    return std::nullopt;
}

bool NotificationDispatchingRepository::ContainsImpl(NotificationNameId nameId,
                                                     NotificationDispatcherId dispatcherId) const
{
    return Find(nameId, dispatcherId).has_value();
}

void NotificationDispatchingRepository::OnAddDuplicate(NotificationNameId nameId,
                                                       NotificationDispatcherId dispatcherId)
{
    throw InvalidOperationException(
        "NotificationDispatchingRepository: Tried to add duplicate: notificationNameId={0}, dispatcherId={1}",
        nameId, dispatcherId);
}

void NotificationDispatchingRepository::OnRemoveUnknown(NotificationNameId nameId,
                                                        NotificationDispatcherId dispatcherId)
{
    throw InvalidOperationException(
        "NotificationDispatchingRepository: Tried to remove unknown: notificationNameId={0}, "
        "dispatcherId={1}",
        nameId, dispatcherId);
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
