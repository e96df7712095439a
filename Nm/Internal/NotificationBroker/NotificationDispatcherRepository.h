#pragma once

#include <Nm/IdType.h>
#include <Nm/Internal/Repository.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/Threading/Mutex.h>

#include <cstddef>
#include <memory>

#include <sys/types.h>

namespace Kiv::System::Nm::Services::Internal
{
class INotificationDispatcherService;
}

namespace Kiv::System::Nm::Internal::NotificationBroker
{
struct NotificationDispatcherRepositoryEntry
{
    String name;
    std::shared_ptr<Services::Internal::INotificationDispatcherService> service;
    /// The dispatcher's process: 0 for the broker's own, whose subscribers are called on the broker's
    /// thread only; -1 when not known.
    pid_t process = -1;

    /// Same name and the very same service object.
    bool operator==(const NotificationDispatcherRepositoryEntry& other) const
    {
        return name == other.name && service == other.service;
    }
};

/// The dispatchers the broker knows, one per process, each with the proxy of its service.
class KIV_API NotificationDispatcherRepository
    : public Repository<NotificationDispatcherId, NotificationDispatcherRepositoryEntry,
                        NotificationDispatcherRepository>
{
public:
    using RepositoryEntry = NotificationDispatcherRepositoryEntry;
    using ServicePointer = std::shared_ptr<Services::Internal::INotificationDispatcherService>;

    NotificationDispatcherRepository();

    /// A new id, from 1 upward; once the ids are used up, one of a dispatcher that has left. Raises
    /// InvalidOperationException when every id is in use.
    NotificationDispatcherId Add(const String& name, ServicePointer service, pid_t process = -1);
    void Remove(NotificationDispatcherId id);
    bool Contains(NotificationDispatcherId id) const;
    bool Contains(const String& name) const;
    std::size_t Count() const;
    /// Shared, so that a Remove during a running Dispatch can't pull the service away.
    ServicePointer GetService(NotificationDispatcherId id) const;
    /// The process of the dispatcher, as given to Add; -1 for an unknown id.
    pid_t GetProcess(NotificationDispatcherId id) const;
    String GetDispatcherName(NotificationDispatcherId id) const;
    NotificationDispatcherId GetDispatcherId(const String& name) const;

    static auto PredicateEuqalsName(const String& name)
    {
        return [name](const Entry& entry) { return entry.second.name == name; };
    }

    [[noreturn]] static void OnRemoveUnknown(NotificationDispatcherId id);
    [[noreturn]] static void OnQueryUnknown(NotificationDispatcherId id);
    [[noreturn]] static void OnAddDuplicate(const RepositoryEntry& entry);
    [[noreturn]] static void OnQueryUnknown(const String& text);

private:
    const RepositoryEntry& GetEntry(NotificationDispatcherId id) const;
    NotificationDispatcherId NextFreeId();

    mutable Commons::Threading::Mutex mutex;
    NotificationDispatcherId lastReused{0};
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
