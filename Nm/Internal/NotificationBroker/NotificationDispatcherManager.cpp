#include <Nm/Internal/NotificationBroker/NotificationDispatcherManager.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>

#include <Kiv/Exceptions.h>

#include <fstream>
#include <mutex>
#include <string>
#include <utility>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Services::Internal::DispatchFailure;
using Services::Internal::INotificationDispatcherService;
using Services::Internal::NotificationBatch;
using Services::Internal::NotificationDispatcherServiceProxyFactory;

namespace
{
/// Why process `pid` can't answer now, or empty: a stopped process (SIGSTOP, a debugger) only after it
/// goes on, an ended one never; a call would cost the caller a wait for nothing.
const char* Unreachable(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(stat, line);
    // The state follows the command name in parentheses, which may itself hold ") ".
    const auto end = line.rfind(") ");
    const char state = end != std::string::npos && end + 2 < line.size() ? line[end + 2] : 'X';
    return state == 'T' || state == 't' ? "stopped" : state == 'Z' || state == 'X' ? "ended" : "";
}

/// The dispatcher service of one process. A connection fails when the process is slow or stopped for
/// longer than the call time limit; once the process goes on it is to be served again, so the next
/// delivery after a failure fetches the service anew, which makes a new connection.
class RefetchingDispatcherService : public INotificationDispatcherService
{
public:
    RefetchingDispatcherService(String name, pid_t pid,
                                std::shared_ptr<INotificationDispatcherService> service)
        : name(std::move(name)), pid(pid), service(std::move(service))
    {
    }

    void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) override
    {
        Call([&](INotificationDispatcherService& current) { current.Dispatch(notification, nameIds); });
    }

    std::vector<DispatchFailure> DispatchBatch(const NotificationBatch& batch) override
    {
        return Call([&](INotificationDispatcherService& current) { return current.DispatchBatch(batch); });
    }

private:
    /// Calls the service of the process, fetched again after a call that failed to reach it, unless the
    /// process is gone.
    template <class TCall>
    auto Call(const TCall& call) -> decltype(call(std::declval<INotificationDispatcherService&>()))
    {
        std::shared_ptr<INotificationDispatcherService> current;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (failed)
            {
                const char* why = Unreachable(pid);
                if (*why != '\0')
                {
                    throw CommunicationException("The process {0} of dispatcher '{1}' has {2}", pid, name,
                                                 why);
                }
                service = NotificationDispatcherManager::GetNotificationDispatcherService(name);
                failed = false;
            }
            current = service;
        }
        try
        {
            return call(*current);
        }
        catch (const CommunicationException&)
        {
            std::lock_guard<std::mutex> lock(mutex);
            failed = true;
            throw;
        }
    }

    const String name;
    const pid_t pid;
    std::mutex mutex;
    std::shared_ptr<INotificationDispatcherService> service;
    bool failed = false;
};
}  // namespace

INotificationDispatcherManager::~INotificationDispatcherManager() = default;

NotificationDispatcherManager::~NotificationDispatcherManager() = default;

NotificationDispatcherId NotificationDispatcherManager::RegisterDispatcher(const String& dispatcherName)
{
    return Fresh(dispatchers.Add(dispatcherName, GetNotificationDispatcherService(dispatcherName), 0));
}

NotificationDispatcherId NotificationDispatcherManager::Fresh(NotificationDispatcherId id)
{
    // An id given again may still have rows of a dispatcher that left with subscribers; they aren't the
    // new one's. (A new id has none: the lookup is the price.)
    dispatchTable.RemoveAll(id);
    return id;
}

NotificationDispatcherId NotificationDispatcherManager::RegisterDispatcher(const String& dispatcherName,
                                                                           pid_t pid)
{
    return Fresh(dispatchers.Add(dispatcherName,
                                 std::make_shared<RefetchingDispatcherService>(
                                     dispatcherName, pid, GetNotificationDispatcherService(dispatcherName)),
                                 pid));
}

std::size_t NotificationDispatcherManager::RemoveDispatcher(NotificationDispatcherId dispatcherId)
{
    const std::size_t rows = dispatchTable.RemoveAll(dispatcherId);
    if (dispatchers.Contains(dispatcherId))
    {
        dispatchers.Remove(dispatcherId);
    }
    return rows;
}

void NotificationDispatcherManager::UnregisterDispatcher(NotificationDispatcherId dispatcherId)
{
    dispatchers.Remove(dispatcherId);
}

void NotificationDispatcherManager::RegisterNotificationDispatch(NotificationNameId notificationNameId,
                                                                 NotificationDispatcherId dispatcherId)
{
    if (!dispatchTable.Contains(notificationNameId, dispatcherId))
    {
        dispatchTable.Add(notificationNameId, dispatcherId);
    }
}

void NotificationDispatcherManager::UnregisterNotificationDispatch(NotificationNameId notificationNameId,
                                                                   NotificationDispatcherId dispatcherId)
{
    dispatchTable.Remove(notificationNameId, dispatcherId);
}

bool NotificationDispatcherManager::ContainsNotificationDispatch(NotificationNameId notificationNameId,
                                                                 NotificationDispatcherId dispatcherId)
{
    return dispatchTable.Contains(notificationNameId, dispatcherId);
}

bool NotificationDispatcherManager::HasDispatcherFor(NotificationNameId notificationNameId) const
{
    return dispatchTable.Contains(notificationNameId);
}

std::shared_ptr<INotificationDispatcherService>
NotificationDispatcherManager::GetNotificationDispatcherService(const String& dispatcherName)
{
    // The dispatcher's name is the provider name it published its service under.
    auto service = Services::FetchService<INotificationDispatcherService>(
        dispatcherName, NotificationDispatcherServiceProxyFactory::GetInstance());
    if (!service)
    {
        throw ArgumentException::Create(
            "dispatcherName", dispatcherName,
            "Could not get INotificationDispatcherService for this dispatcher name");
    }
    return service;
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
