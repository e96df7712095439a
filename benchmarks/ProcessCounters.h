#pragma once

// What one process of a benchmark spends, all its threads together: heap allocations (through the
// preloaded AllocationCount library), system calls (the kernel's raw_syscalls:sys_enter tracepoint, counted
// by perf_event_open as `perf stat` would), context switches and CPU time (getrusage). A figure that this
// machine cannot give is NaN.

#include <dlfcn.h>
#include <linux/perf_event.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

namespace KivBench
{
/// The preloaded counter's functions, or null where it is not loaded.
struct AllocationCountFunctions
{
    using Count = std::uint64_t (*)();
    using Pause = void (*)(int);
    Count process = reinterpret_cast<Count>(dlsym(RTLD_DEFAULT, "KivBenchProcessAllocations"));
    Count thread = reinterpret_cast<Count>(dlsym(RTLD_DEFAULT, "KivBenchThreadAllocations"));
    Pause pause = reinterpret_cast<Pause>(dlsym(RTLD_DEFAULT, "KivBenchPauseCounting"));

    static const AllocationCountFunctions& Get()
    {
        static const AllocationCountFunctions functions;
        return functions;
    }
    bool Loaded() const { return process != nullptr && thread != nullptr && pause != nullptr; }
};

/// The calling thread's allocations are not counted while this exists.
class UncountedAllocations
{
public:
    UncountedAllocations()
    {
        if (const auto pause = AllocationCountFunctions::Get().pause)
        {
            pause(1);
        }
    }
    ~UncountedAllocations()
    {
        if (const auto pause = AllocationCountFunctions::Get().pause)
        {
            pause(0);
        }
    }
    UncountedAllocations(const UncountedAllocations&) = delete;
    UncountedAllocations& operator=(const UncountedAllocations&) = delete;
};

struct Counts
{
    double allocations = std::nan("");
    double syscalls = std::nan("");
    double voluntarySwitches = std::nan("");
    double involuntarySwitches = std::nan("");
    double cpuNs = std::nan("");     // exact
    double systemNs = std::nan("");  // of it in the kernel, as sampled by the scheduler's tick

    Counts operator-(const Counts& earlier) const
    {
        return {allocations - earlier.allocations,
                syscalls - earlier.syscalls,
                voluntarySwitches - earlier.voluntarySwitches,
                involuntarySwitches - earlier.involuntarySwitches,
                cpuNs - earlier.cpuNs,
                systemNs - earlier.systemNs};
    }
};

/// Counts a process's system calls. Made before the process starts its threads: the kernel counts the
/// threads made later (inherit) and adds them in on every read, live or ended.
class SyscallCounter
{
public:
    /// `open` false: counts nothing, for a run that does not ask.
    explicit SyscallCounter(bool open = true)
    {
        if (!open)
        {
            return;
        }
        std::ifstream idFile("/sys/kernel/tracing/events/raw_syscalls/sys_enter/id");
        std::uint64_t id = 0;
        if (!(idFile >> id))
        {
            return;
        }
        perf_event_attr attr{};
        attr.type = PERF_TYPE_TRACEPOINT;
        attr.size = sizeof attr;
        attr.config = id;
        attr.inherit = 1;
        fd = static_cast<int>(syscall(SYS_perf_event_open, &attr, 0, -1, -1, PERF_FLAG_FD_CLOEXEC));
    }
    ~SyscallCounter()
    {
        if (fd >= 0)
        {
            close(fd);
        }
    }
    static const SyscallCounter& None()
    {
        static const SyscallCounter none(false);
        return none;
    }
    SyscallCounter(const SyscallCounter&) = delete;
    SyscallCounter& operator=(const SyscallCounter&) = delete;

    double Read() const
    {
        std::uint64_t value = 0;
        return fd >= 0 && read(fd, &value, sizeof value) == sizeof value ? static_cast<double>(value)
                                                                         : std::nan("");
    }

private:
    int fd = -1;
};

inline Counts Take(const SyscallCounter& syscalls)
{
    Counts counts;
    // First, so that what the reads below cost is not in it.
    counts.syscalls = syscalls.Read();
    const auto& allocations = AllocationCountFunctions::Get();
    if (allocations.Loaded())
    {
        counts.allocations = static_cast<double>(allocations.process());
    }
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) == 0)
    {
        counts.voluntarySwitches = static_cast<double>(usage.ru_nvcsw);
        counts.involuntarySwitches = static_cast<double>(usage.ru_nivcsw);
        counts.systemNs = static_cast<double>(usage.ru_stime.tv_sec) * 1e9 + usage.ru_stime.tv_usec * 1e3;
    }
    timespec cpu{};
    if (clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu) == 0)
    {
        counts.cpuNs = static_cast<double>(cpu.tv_sec) * 1e9 + static_cast<double>(cpu.tv_nsec);
    }
    return counts;
}
}  // namespace KivBench
