#pragma once

#include <Kiv/Export.h>

#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include <sys/types.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// Tells when a process has ended, however it ended, within moments: one pidfd per watched process, all
/// polled by one thread. A process that dies holds nothing of the broker's any longer, so the broker
/// removes what it had as if it had left cleanly.
class KIV_API DepartureWatcher
{
public:
    /// `onDeparture` runs on the watcher's thread, once per watched process that ends, with no lock held.
    explicit DepartureWatcher(std::function<void(pid_t)> onDeparture);
    DepartureWatcher(const DepartureWatcher&) = delete;
    DepartureWatcher& operator=(const DepartureWatcher&) = delete;
    /// Stops the thread; departures after this are not reported.
    ~DepartureWatcher();

    /// Starts watching `pid`, unless it is watched already. False if the kernel can't watch it, with errno
    /// telling why: ESRCH when the process is gone already, else pidfds are not to be had.
    bool Watch(pid_t pid);
    /// Stops watching `pid`, a process that has nothing left to remove.
    void Forget(pid_t pid);
    std::size_t Count() const;

private:
    void Run();
    void Wake() const;

    std::function<void(pid_t)> onDeparture;
    mutable std::mutex mutex;
    std::map<pid_t, int> pidfds;
    bool stopping = false;
    int wakeFd;
    std::thread thread;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
