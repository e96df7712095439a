#include <Nm/Internal/NotificationBroker/NotificationDispatcherRepository.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>

#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Commons::Threading::Mutex;

NotificationDispatcherRepository::NotificationDispatcherRepository() : mutex(true) {}

NotificationDispatcherId NotificationDispatcherRepository::Add(const String& name, ServicePointer service,
                                                               pid_t process)
{
    Mutex::ScopedLock lock(mutex);
    RepositoryEntry entry{name, std::move(service), process};
    if (FindFirst(PredicateEqualsValue(entry)))
    {
        OnAddDuplicate(entry);
    }
    NotificationDispatcherId id = idGenerator.Next();
    if (id == NotificationDispatcherId(0))
    {
        id = NextFreeId();
    }
    container.emplace(id, std::move(entry));
    return id;
}

NotificationDispatcherId NotificationDispatcherRepository::NextFreeId()
{
    // Once all 16-bit ids were handed out, those of dispatchers that left are given again, in turn from
    // the last one given, so that a system that runs for years keeps taking processes in. An id given
    // again has no dispatch rows: the manager removes what its former holder left.
    constexpr std::uint32_t count = UINT16_MAX;
    for (std::uint32_t step = 1; step <= count; ++step)
    {
        const NotificationDispatcherId candidate(
            static_cast<std::uint16_t>((lastReused.GetValue() + step - 1) % count + 1));
        if (container.find(candidate) == container.end())
        {
            lastReused = candidate;
            return candidate;
        }
    }
    throw InvalidOperationException(
        "NotificationDispatcherRepository: all {0} dispatcher ids are in use; no further process can join",
        count);
}

void NotificationDispatcherRepository::Remove(NotificationDispatcherId id)
{
    Mutex::ScopedLock lock(mutex);
    if (container.erase(id) == 0)
    {
        OnRemoveUnknown(id);
    }
}

bool NotificationDispatcherRepository::Contains(NotificationDispatcherId id) const
{
    Mutex::ScopedLock lock(mutex);
    return container.find(id) != container.end();
}

bool NotificationDispatcherRepository::Contains(const String& name) const
{
    Mutex::ScopedLock lock(mutex);
    return FindFirst(PredicateEuqalsName(name)).has_value();
}

std::size_t NotificationDispatcherRepository::Count() const
{
    Mutex::ScopedLock lock(mutex);
    return container.size();
}

NotificationDispatcherRepository::ServicePointer NotificationDispatcherRepository::GetService(
    NotificationDispatcherId id) const
{
    Mutex::ScopedLock lock(mutex);
    return GetEntry(id).service;
}

pid_t NotificationDispatcherRepository::GetProcess(NotificationDispatcherId id) const
{
    Mutex::ScopedLock lock(mutex);
    const auto entry = container.find(id);
    return entry != container.end() ? entry->second.process : -1;
}

String NotificationDispatcherRepository::GetDispatcherName(NotificationDispatcherId id) const
{
    Mutex::ScopedLock lock(mutex);
    return GetEntry(id).name;
}

NotificationDispatcherId NotificationDispatcherRepository::GetDispatcherId(const String& name) const
{
    Mutex::ScopedLock lock(mutex);
    const auto id = FindFirst(PredicateEuqalsName(name));
    if (!id)
    {
        OnQueryUnknown(String::Format("tried to query unknown dispatcher: {0}", name));
    }
    return *id;
}

const NotificationDispatcherRepository::RepositoryEntry& NotificationDispatcherRepository::GetEntry(
    NotificationDispatcherId id) const
{
    auto row = container.find(id);
    if (row == container.end())
    {
        OnQueryUnknown(id);
    }
    return row->second;
}

void NotificationDispatcherRepository::OnRemoveUnknown(NotificationDispatcherId id)
{
    throw InvalidOperationException(
        "NotificationDispatcherRepository: tried to remove unknown dispatcher: {0}", id);
}

void NotificationDispatcherRepository::OnQueryUnknown(NotificationDispatcherId id)
{
    throw InvalidOperationException("NotificationDispatcherRepository:: tried to query unknown: {0}", id);
}

void NotificationDispatcherRepository::OnAddDuplicate(const RepositoryEntry& entry)
{
    throw InvalidOperationException(
        "NotificationDispatcherRepository: tried to add duplicate dispatcher: {0}", entry.name);
}

void NotificationDispatcherRepository::OnQueryUnknown(const String& text)
{
    throw InvalidOperationException("NotificationDispatcherRepository: {0}", text);
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
