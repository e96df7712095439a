#include <Nm/Internal/NotificationBroker/DepartureWatcher.h>

#include <Kiv/Exceptions.h>

#include <cerrno>
#include <cstdint>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
namespace
{
int OpenPidfd(pid_t pid)
{
    // glibc 2.36 has no wrapper; the system call is in the kernel since 5.3.
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}
}  // namespace

DepartureWatcher::DepartureWatcher(std::function<void(pid_t)> onDeparture)
    : onDeparture(std::move(onDeparture)), wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (wakeFd < 0)
    {
        throw Exception("Could not create the event of the process watcher: errno {0}", errno);
    }
    thread = std::thread(&DepartureWatcher::Run, this);
}

DepartureWatcher::~DepartureWatcher()
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    Wake();
    thread.join();
    for (const auto& [pid, fd] : pidfds)
    {
        close(fd);
    }
    close(wakeFd);
}

bool DepartureWatcher::Watch(pid_t pid)
{
    std::lock_guard<std::mutex> lock(mutex);
    if (pidfds.count(pid) != 0)
    {
        return true;
    }
    const int fd = OpenPidfd(pid);
    if (fd < 0)
    {
        return false;
    }
    pidfds.emplace(pid, fd);
    Wake();
    return true;
}

void DepartureWatcher::Forget(pid_t pid)
{
    std::lock_guard<std::mutex> lock(mutex);
    const auto found = pidfds.find(pid);
    if (found != pidfds.end())
    {
        close(found->second);
        pidfds.erase(found);
        Wake();
    }
}

std::size_t DepartureWatcher::Count() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return pidfds.size();
}

void DepartureWatcher::Wake() const
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wakeFd, &one, sizeof one);
}

void DepartureWatcher::Run()
{
    std::vector<pollfd> entries;
    std::vector<pid_t> pids;
    for (;;)
    {
        entries.assign(1, pollfd{wakeFd, POLLIN, 0});
        pids.assign(1, 0);
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (stopping)
            {
                return;
            }
            for (const auto& [pid, fd] : pidfds)
            {
                entries.push_back(pollfd{fd, POLLIN, 0});
                pids.push_back(pid);
            }
        }
        if (poll(entries.data(), entries.size(), -1) < 0)
        {
            continue;
        }
        if (entries[0].revents != 0)
        {
            std::uint64_t count = 0;
            [[maybe_unused]] const auto read = ::read(wakeFd, &count, sizeof count);
        }
        for (std::size_t i = 1; i < entries.size(); ++i)
        {
            if (entries[i].revents == 0)
            {
                continue;
            }
            {
                // A pidfd that was forgotten meanwhile may have been closed, and its number reused.
                std::lock_guard<std::mutex> lock(mutex);
                const auto found = pidfds.find(pids[i]);
                if (found == pidfds.end() || found->second != entries[i].fd || stopping)
                {
                    continue;
                }
                close(found->second);
                pidfds.erase(found);
            }
            onDeparture(pids[i]);
        }
    }
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
