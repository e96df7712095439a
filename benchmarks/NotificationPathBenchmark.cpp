// Where the time of a notification goes, beside what the machine's Unix sockets allow at best. One program
// in several roles: without --role it is the driver, which runs every scenario several times, each run in
// fresh processes (fork and exec of this program), and prints the median of the runs with their min and
// max, also as JSON. The library is never touched by the driver itself, so forked children start clean.
//
// A notification carries a 56-character StringPayload whose text begins with the steady clock (the
// system's CLOCK_MONOTONIC, shared by all processes) read just before the payload is made and sent; the
// subscriber's handler reads the clock first thing, so a latency is "send call started" to "Notify
// entered". Latencies come from a paced phase (the next send waits until every subscriber has seen the
// last one), rates from an unpaced phase that follows it.

#include <Nm/GenericPayload.h>
#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/NonBlockingNotificationRegistration3ArgumentsBufferBase.h>
#include <Nm/Notification.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistration.h>
#include <Nm/NotificationSubscriber.h>
#include <Nm/StringPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Logging/LogManager.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <fmt/format.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Common/SystemMembership.h>
#include <Support/CountingAllocator.h>
#include "ProcessCounters.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <numeric>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace Kiv::System::Nm;
using Kiv::System::Commons::AppDomain;
using Kiv::System::Commons::Logging::LogLevel;
using Kiv::System::Commons::Logging::LogManager;
using Kiv::System::Nm::Internal::NotificationManagerSetup;
using Kiv::System::Tul::ServiceManager;
using Kiv::System::Tul::TulSettings;
using KivBench::Counts;
using KivBench::SyscallCounter;
using KivBench::UncountedAllocations;

namespace
{
using Clock = std::chrono::steady_clock;
constexpr std::size_t PayloadLength = 56;
constexpr const char* Name = "Bench.Path.Tick";
constexpr auto WaitLimit = std::chrono::seconds(60);
// Large enough that the unpaced phase never finds the broker's queue full.
constexpr std::uint32_t BrokerQueueLength = 1u << 20;

std::int64_t NowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

struct Options
{
    std::string role;  // empty: the driver
    int runs = 5;
    std::int64_t calls = 1 << 20;
    int warmup = 500;
    int latencySamples = 5000;
    int messages = 20000;
    int inProcessMessages = 100000;
    int floorRoundTrips = 20000;
    int floorMessages = 200000;
    std::string json;
    std::string only;
    // Also system calls, context switches and CPU time per notification and process.
    bool counts = false;
    // Of a process role.
    std::string dir;
    std::string system;
    std::string name;
    bool broker = false;
    bool sender = false;
    int subscribers = 0;
    int totalSubscribers = 0;
    int remoteProcesses = 0;
    // How the sender sends the unpaced phase: blocking from this many threads, or non-blocking.
    int senderThreads = 1;
    bool nonBlocking = false;
    // Of the bridge row: the broker's process is alone in its system, and the driver says go once the
    // bridges are connected.
    bool bridged = false;
};

Options Parse(int argc, char** argv)
{
    Options o;
    const std::map<std::string, std::function<void(const std::string&)>> setters = {
        {"role", [&](const std::string& v) { o.role = v; }},
        {"runs", [&](const std::string& v) { o.runs = std::stoi(v); }},
        {"calls", [&](const std::string& v) { o.calls = std::stoll(v); }},
        {"warmup", [&](const std::string& v) { o.warmup = std::stoi(v); }},
        {"latency-samples", [&](const std::string& v) { o.latencySamples = std::stoi(v); }},
        {"messages", [&](const std::string& v) { o.messages = std::stoi(v); }},
        {"in-process-messages", [&](const std::string& v) { o.inProcessMessages = std::stoi(v); }},
        {"floor-round-trips", [&](const std::string& v) { o.floorRoundTrips = std::stoi(v); }},
        {"floor-messages", [&](const std::string& v) { o.floorMessages = std::stoi(v); }},
        {"json", [&](const std::string& v) { o.json = v; }},
        {"only", [&](const std::string& v) { o.only = v; }},
        {"counts", [&](const std::string& v) { o.counts = v == "1"; }},
        {"sender-threads", [&](const std::string& v) { o.senderThreads = std::stoi(v); }},
        {"non-blocking", [&](const std::string& v) { o.nonBlocking = v == "1"; }},
        {"dir", [&](const std::string& v) { o.dir = v; }},
        {"system", [&](const std::string& v) { o.system = v; }},
        {"name", [&](const std::string& v) { o.name = v; }},
        {"broker", [&](const std::string& v) { o.broker = v == "1"; }},
        {"sender", [&](const std::string& v) { o.sender = v == "1"; }},
        {"subscribers", [&](const std::string& v) { o.subscribers = std::stoi(v); }},
        {"total-subscribers", [&](const std::string& v) { o.totalSubscribers = std::stoi(v); }},
        {"remote-processes", [&](const std::string& v) { o.remoteProcesses = std::stoi(v); }},
        {"bridged", [&](const std::string& v) { o.bridged = v == "1"; }},
    };
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        const auto equals = arg.find('=');
        const auto setter = setters.find(arg.substr(2, equals == std::string::npos ? equals : equals - 2));
        if (arg.rfind("--", 0) != 0 || equals == std::string::npos || setter == setters.end())
        {
            throw std::invalid_argument(
                "unknown argument " + arg +
                "\nusage: NotificationPathBenchmark [--runs=5] [--calls=1048576] [--latency-samples=5000] "
                "[--messages=20000] [--in-process-messages=100000] [--warmup=500] "
                "[--floor-round-trips=20000] "
                "[--floor-messages=200000] [--only=<row key substrings, comma-separated>] [--json=<path>] "
                "[--counts=1: system calls, context switches, CPU and allocations per notification]");
        }
        setter->second(arg.substr(equals + 1));
    }
    return o;
}

double Percentile(std::vector<double>& samples, double fraction)
{
    if (samples.empty())
    {
        return 0;
    }
    const auto index = static_cast<std::size_t>(fraction * static_cast<double>(samples.size() - 1) + 0.5);
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(index), samples.end());
    return samples[index];
}

/// What one run of a scenario measured; NaN where the row has no such figure.
struct Figures
{
    double rate = std::nan("");
    double p50 = std::nan("");
    double p99 = std::nan("");
    double p999 = std::nan("");
    double dropped = std::nan("");
    double allocations = std::nan("");  // on the caller's thread, per call
    // All processes together, outside the subscribers' handlers, per notification of the unpaced phase.
    double allocationsPerNotification = std::nan("");
    // Per process: what it spent per notification, [0] paced and [1] unpaced.
    std::map<std::string, std::array<Counts, 2>> perProcess;
};

void SetLatencies(Figures& figures, std::vector<double>& samples)
{
    figures.p50 = Percentile(samples, 0.5);
    figures.p99 = Percentile(samples, 0.99);
    figures.p999 = Percentile(samples, 0.999);
}

// ---------------------------------------------------------------------------------------------------------
// Synchronisation between the processes of a run: named pipes in the run's directory, opened for reading
// and writing by everyone so that no open blocks and no end sees end-of-file. Each pipe has one reading
// process; a signal is one byte.

class Fifo
{
public:
    explicit Fifo(const std::string& path) : path(path), fd(open(path.c_str(), O_RDWR | O_CLOEXEC))
    {
        if (fd < 0)
        {
            throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
        }
    }
    Fifo(const Fifo&) = delete;
    Fifo& operator=(const Fifo&) = delete;
    ~Fifo() { close(fd); }

    void Signal(int count = 1) const
    {
        for (int i = 0; i < count; ++i)
        {
            const char byte = 1;
            while (write(fd, &byte, 1) != 1)
            {
                if (errno != EINTR)
                {
                    throw std::runtime_error("cannot write " + path);
                }
            }
        }
    }

    void Wait(int count) const
    {
        const auto deadline = Clock::now() + WaitLimit;
        char buffer[64];
        while (count > 0)
        {
            pollfd entry{fd, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0)
            {
                throw std::runtime_error("timed out waiting on " + path);
            }
            if (poll(&entry, 1, static_cast<int>(left.count())) <= 0)
            {
                continue;
            }
            const auto got = read(fd, buffer, static_cast<std::size_t>(std::min<int>(count, sizeof buffer)));
            count -= got > 0 ? static_cast<int>(got) : 0;
        }
    }

private:
    std::string path;
    int fd;
};

using TextBuffer = std::array<char, PayloadLength + 1>;

/// The text of a notification, without allocating: the sender's own work is not the library's.
void FillText(TextBuffer& text, char phase, std::int64_t nanoseconds)
{
    const int length =
        std::snprintf(text.data(), text.size(), "%c%020lld", phase, static_cast<long long>(nanoseconds));
    std::fill(text.begin() + std::min<int>(length, PayloadLength), text.end() - 1, '.');
    text.back() = '\0';
}

std::string Text(char phase, std::int64_t nanoseconds)
{
    TextBuffer text;
    FillText(text, phase, nanoseconds);
    return text.data();
}

/// All pipes of a run, opened when a process starts and kept until it ends: a pipe that nobody holds
/// open loses what was written to it.
struct Pipes
{
    explicit Pipes(const std::string& dir)
        : setup(dir + "/setup"),
          ready(dir + "/ready"),
          go(dir + "/go"),
          ack(dir + "/ack"),
          leave(dir + "/leave"),
          done(dir + "/done"),
          marks{Fifo(dir + "/mark0"), Fifo(dir + "/mark1"), Fifo(dir + "/mark2")},
          marked(dir + "/marked")
    {
    }

    const Fifo setup;  // broker to the others: its services are published
    const Fifo ready;  // to the broker: one per subscriber and sender set up
    const Fifo go;     // broker to the sender: dispatching has started
    const Fifo ack;    // subscribers to the sender: one per paced notification and the end
    const Fifo leave;  // sender to the others: every subscriber has the end
    const Fifo done;   // to the broker: a process has taken its part down
    // Sender to the others: take your counts now (paced phase begins, ends, unpaced phase ends); one pipe
    // each, so that no process takes another's signal of the same mark.
    const std::array<Fifo, 3> marks;
    const Fifo marked;  // to the sender: counts taken
};

/// One subscriber: takes the time on entry, then looks at what the notification carries.
class Receiver
{
public:
    Receiver(const Fifo& ack, int latencySamples) : ack(ack) { latencies.reserve(latencySamples); }

    void OnNotification(const Notification& notification)
    {
        const std::int64_t at = NowNs();
        // What the subscriber does is its own business, not the library's.
        const UncountedAllocations uncounted;
        const Kiv::String text = GenericPayload(notification).ToString();
        const char phase = text.empty() ? '?' : text[0];
        const std::int64_t sent = std::strtoll(text.c_str() + (text.empty() ? 0 : 1), nullptr, 10);
        switch (phase)
        {
            case 'W':
                ack.Signal();
                break;
            case 'L':
                latencies.push_back(static_cast<double>(at - sent));
                ack.Signal();
                break;
            case 'T':
                firstSent = received == 0 ? sent : firstSent;
                lastReceived = at;
                ++received;
                break;
            case 'E':
            {
                std::lock_guard<std::mutex> lock(mutex);
                ended = true;
                ack.Signal();
                endedCondition.notify_all();
                break;
            }
            default:
                ++malformed;
        }
    }

    void WaitForEnd()
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (!endedCondition.wait_for(lock, WaitLimit, [this] { return ended; }))
        {
            throw std::runtime_error("the end of the run never arrived");
        }
    }

    /// First line: received, send time of the first, receipt time of the last, malformed; then the
    /// latencies.
    void Write(const std::string& path) const
    {
        std::ofstream out(path);
        out << received << ' ' << firstSent << ' ' << lastReceived << ' ' << malformed << '\n';
        for (double latency : latencies)
        {
            out << static_cast<std::int64_t>(latency) << '\n';
        }
    }

private:
    const Fifo& ack;
    std::vector<double> latencies;
    std::int64_t received = 0;
    std::int64_t firstSent = 0;
    std::int64_t lastReceived = 0;
    std::int64_t malformed = 0;
    std::mutex mutex;
    std::condition_variable endedCondition;
    bool ended = false;
};

/// This process in the benchmark's system, until the returned membership goes.
std::unique_ptr<KivTools::SystemMembership> Join(const Options& o)
{
    LogManager::SetDefaultLogLevel(LogLevel::Warning);
    TulSettings settings;
    settings.systemName = o.system.c_str();
    settings.endpointDirectory = (o.dir + "/endpoints").c_str();
    settings.connectWait = std::chrono::seconds(10);
    settings.callTimeLimit = std::chrono::seconds(30);
    ServiceManager::Configure(settings);
    auto membership = std::make_unique<KivTools::SystemMembership>(o.name);
    membership->Join(o.broker, Kiv::String((o.dir + "/settings.xml").c_str()));
    return membership;
}

/// What a process spent in each measured phase: [0] the paced phase after the warm-up, [1] the unpaced
/// phase with its end. Every process takes its counts when the sender marks a phase's bounds.
struct PhaseCounts
{
    std::array<Counts, 3> at;

    /// Two lines, paced and unpaced: allocations, system calls, voluntary and involuntary context switches,
    /// CPU ns, of it in the kernel; -1 for what was not counted.
    void Write(const std::string& path) const
    {
        std::ofstream out(path);
        for (int phase = 0; phase < 2; ++phase)
        {
            const Counts c = at[phase + 1] - at[phase];
            for (double value :
                 {c.allocations, c.syscalls, c.voluntarySwitches, c.involuntarySwitches, c.cpuNs, c.systemNs})
            {
                out << (std::isnan(value) ? -1.0 : value) << ' ';
            }
            out << '\n';
        }
    }
};

// The non-blocking sender: the function-pointer form with a Future per ring buffer slot, made ahead. The
// phase and send time of a slot wait here for the worker, which makes the payload; the ring buffer's lock
// orders the write before the read.
std::vector<std::pair<char, std::int64_t>> nonBlockingStamps;

std::vector<TulVariant<512>> MakeStampedPayload(
    NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg arg)
{
    TextBuffer text;
    const auto& [phase, sent] = nonBlockingStamps[arg.position];
    FillText(text, phase, sent);
    return StringPayload(text.data()).GetAsRawPayloadType();
}

class NonBlockingSender
{
public:
    NonBlockingSender(NotificationManager& manager, NotificationNameId id)
        : manager(manager),
          id(id),
          arguments(std::make_shared<NonBlockingNotificationRegistration3ArgumentsBufferBase>())
    {
        const unsigned capacity = std::max(1u, NotificationManager::GetDefaultArgumentsBufferCapacity());
        nonBlockingStamps.resize(capacity);
        for (unsigned i = 0; i < capacity; ++i)
        {
            futures.push_back(Future<NotificationId>::CreateByPromise());
            // Not yet used: as good as done.
            futures.back().SetValue(NotificationId(1));
        }
    }

    /// Queues one notification; waits only while the ring buffer is full, as a caller that must not lose
    /// it would.
    void Send(char phase)
    {
        const auto deadline = Clock::now() + WaitLimit;
        for (;;)
        {
            auto& future = futures[slot];
            while (!Done(future))
            {
                Pause(deadline);
            }
            dropped += future.HasException() ? 1 : 0;
            nonBlockingStamps[slot] = {phase, NowNs()};
            manager.NonBlockingSendNotification(id, Kiv::DateTime::GetUtcNow(), &MakeStampedPayload,
                                                {arguments, slot}, future);
            if (future.IsValid())
            {
                slot = (slot + 1) % static_cast<std::uint32_t>(futures.size());
                return;
            }
            // Refused: the ring buffer is full.
            Pause(deadline);
        }
    }

    /// Sends that failed at the broker.
    std::int64_t Dropped()
    {
        const auto deadline = Clock::now() + WaitLimit;
        for (auto& future : futures)
        {
            while (!Done(future))
            {
                Pause(deadline);
            }
            dropped += future.HasException() ? 1 : 0;
            future.SetValue(NotificationId(1));
        }
        return dropped;
    }

private:
    static bool Done(const Future<NotificationId>& future)
    {
        return !future.IsValid() || future.HasValue() || future.HasException();
    }

    static void Pause(Clock::time_point deadline)
    {
        if (Clock::now() > deadline)
        {
            throw std::runtime_error("the non-blocking worker stopped");
        }
        // Sleeping leaves the cores to the worker and the broker, which yielding would not.
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }

    NotificationManager& manager;
    const NotificationNameId id;
    std::shared_ptr<NonBlockingNotificationRegistration3ArgumentsBufferBase> arguments;
    std::vector<Future<NotificationId>> futures;
    std::uint32_t slot = 0;
    std::int64_t dropped = 0;
};

void RunSender(const Options& o, NotificationManager& manager,
               const NotificationRegistration<StringPayload>& registration, const Pipes& pipes,
               const SyscallCounter& syscalls)
{
    std::atomic<std::int64_t> dropped{0};
    std::optional<NonBlockingSender> nonBlocking;
    if (o.nonBlocking)
    {
        nonBlocking.emplace(manager, registration.GetNotificationNameId());
    }
    const auto send = [&](char phase)
    {
        if (nonBlocking)
        {
            nonBlocking->Send(phase);
            return true;
        }
        TextBuffer text;
        const std::int64_t start = NowNs();
        FillText(text, phase, start);
        const bool accepted = registration.SendNotification(StringPayload(text.data())) != NotificationId(0);
        dropped += accepted ? 0 : 1;
        return accepted;
    };
    PhaseCounts counts;
    const auto mark = [&](int at)
    {
        if (!o.bridged)
        {
            pipes.marks[at].Signal(o.remoteProcesses);
            pipes.marked.Wait(o.remoteProcesses);
        }
        counts.at[at] = KivBench::Take(syscalls);
    };
    for (int i = 0; i < o.warmup + o.latencySamples; ++i)
    {
        if (i == o.warmup)
        {
            mark(0);
        }
        if (send(i < o.warmup ? 'W' : 'L'))
        {
            pipes.ack.Wait(o.totalSubscribers);
        }
    }
    mark(1);
    const int messages = o.remoteProcesses == 0 ? o.inProcessMessages : o.messages;
    const int threads = nonBlocking ? 1 : std::max(1, o.senderThreads);
    if (threads == 1)
    {
        for (int i = 0; i < messages; ++i)
        {
            send('T');
        }
    }
    else
    {
        std::vector<std::thread> senders;
        for (int t = 0; t < threads; ++t)
        {
            senders.emplace_back(
                [&, t]
                {
                    for (int i = t; i < messages; i += threads)
                    {
                        send('T');
                    }
                });
        }
        for (auto& sender : senders)
        {
            sender.join();
        }
    }
    // The end must arrive: it is sent again until the queue takes it.
    const auto deadline = Clock::now() + WaitLimit;
    while (!send('E'))
    {
        --dropped;
        if (Clock::now() > deadline)
        {
            throw std::runtime_error("the broker's queue never took the end of the run");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    pipes.ack.Wait(o.totalSubscribers);
    mark(2);
    if (nonBlocking)
    {
        dropped += nonBlocking->Dropped();
    }
    // Every subscriber has seen the end; now the other processes may leave.
    pipes.leave.Signal(o.remoteProcesses);
    std::ofstream(o.dir + "/sender.txt") << dropped << ' ' << messages << ' ' << o.latencySamples << '\n';
    if (!o.bridged)
    {
        counts.Write(o.dir + "/counts-" + o.name + ".txt");
    }
}

/// The counts of a process that does not send: taken when the sender marks.
void FollowMarks(const Options& o, const Pipes& pipes, const SyscallCounter& syscalls)
{
    PhaseCounts counts;
    for (std::size_t at = 0; at < counts.at.size(); ++at)
    {
        pipes.marks[at].Wait(1);
        counts.at[at] = KivBench::Take(syscalls);
        pipes.marked.Signal();
    }
    counts.Write(o.dir + "/counts-" + o.name + ".txt");
}

/// One process of a delivery scenario: any of broker, sender and subscribers.
void RunProcess(const Options& o, const SyscallCounter& syscalls)
{
    const Pipes pipes(o.dir);
    // The others start once the broker has published all its services: a client that reaches the
    // broker's endpoint early is refused the services not yet published, and does not retry.
    if (!o.broker)
    {
        pipes.setup.Wait(1);
    }
    auto membership = Join(o);
    if (o.broker)
    {
        pipes.setup.Signal(o.remoteProcesses);
    }
    {
        auto& manager = NotificationManager::GetInstance();
        std::vector<std::unique_ptr<Receiver>> receivers;
        std::vector<NotificationSubscriber> subscribers;
        subscribers.reserve(static_cast<std::size_t>(o.subscribers));
        for (int i = 0; i < o.subscribers; ++i)
        {
            receivers.push_back(std::make_unique<Receiver>(pipes.ack, o.latencySamples));
            subscribers.emplace_back(Name);
            Receiver* receiver = receivers.back().get();
            subscribers.back().AddHandler([receiver](const Notification& n) { receiver->OnNotification(n); });
        }
        std::optional<NotificationRegistration<StringPayload>> registration;
        if (o.sender)
        {
            registration.emplace(Name, "Bench", Severity::Info, manager);
        }
        if (o.bridged)
        {
            NotificationManagerSetup::StartDispatching();
        }
        else
        {
            pipes.ready.Signal(o.subscribers + (o.sender ? 1 : 0));
        }
        if (o.broker && !o.bridged)
        {
            pipes.ready.Wait(o.totalSubscribers + 1);
            NotificationManagerSetup::StartDispatching();
            pipes.go.Signal();
        }
        if (o.sender)
        {
            pipes.go.Wait(1);
            RunSender(o, manager, *registration, pipes, syscalls);
        }
        else if (!o.bridged)
        {
            FollowMarks(o, pipes, syscalls);
        }
        for (std::size_t i = 0; i < receivers.size(); ++i)
        {
            receivers[i]->WaitForEnd();
            receivers[i]->Write(fmt::format("{}/receiver-{}-{}.txt", o.dir, o.name, i));
        }
        if (!o.sender)
        {
            // Not before every subscriber has the end: the broker delivers a notification to one
            // process after another, and a process that leaves meanwhile costs the ones after it their
            // copy.
            pipes.leave.Wait(1);
        }
        subscribers.clear();
        registration.reset();
        if (o.broker && !o.bridged)
        {
            // The others unsubscribe and unregister at the broker as they go.
            pipes.done.Wait(o.remoteProcesses);
        }
    }
    membership.reset();
    if (!o.broker && !o.bridged)
    {
        pipes.done.Signal();
    }
}

// ---------------------------------------------------------------------------------------------------------
// The non-blocking path: the function-pointer form with a Future made ahead, as a non-blocking
// registration sends. Bursts of half the ring buffer; the worker drains in between, untimed.

std::vector<TulVariant<512>> MakePayload(NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg arg)
{
    return StringPayload(Text('N', static_cast<std::int64_t>(arg.position)).c_str()).GetAsRawPayloadType();
}

void RunNonBlocking(const Options& o)
{
    auto membership = Join(o);
    {
        auto& manager = NotificationManager::GetInstance();
        const NotificationRegistration<StringPayload> registration(Name, "Bench", Severity::Info, manager);
        NotificationManagerSetup::StartDispatching();
        const auto id = registration.GetNotificationNameId();
        const unsigned burst = std::max(1u, NotificationManager::GetDefaultArgumentsBufferCapacity() / 2);
        auto arguments = std::make_shared<NonBlockingNotificationRegistration3ArgumentsBufferBase>();
        std::vector<Future<NotificationId>> futures;
        for (unsigned i = 0; i < burst; ++i)
        {
            futures.push_back(Future<NotificationId>::CreateByPromise());
        }
        const auto drain = [&]
        {
            const auto deadline = Clock::now() + WaitLimit;
            for (auto& future : futures)
            {
                while (future.IsValid() && !future.HasValue())
                {
                    if (Clock::now() > deadline)
                    {
                        throw std::runtime_error("the non-blocking worker stopped");
                    }
                    // Sleeping leaves the cores to the worker and the broker, which yielding would not.
                    std::this_thread::sleep_for(std::chrono::microseconds(50));
                }
            }
        };
        const Kiv::DateTime stamp = Kiv::DateTime::GetUtcNow();
        std::vector<double> samples(static_cast<std::size_t>(o.calls));
        std::int64_t refused = 0;
        std::uint64_t counted = 0;
        const auto sendAll = [&](std::int64_t calls, bool record)
        {
            unsigned slot = 0;
            for (std::int64_t i = 0; i < calls; ++i)
            {
                // The caller's thread only: the worker allocates as it likes.
                std::optional<Kiv::Testing::AllocationCounter> counter(std::in_place);
                const auto start = Clock::now();
                manager.NonBlockingSendNotification(id, stamp, &MakePayload, {arguments, slot},
                                                    futures[slot]);
                const auto end = Clock::now();
                const std::uint64_t allocated = counter->Get();
                counter.reset();
                if (record)
                {
                    samples[static_cast<std::size_t>(i)] =
                        std::chrono::duration<double, std::nano>(end - start).count();
                    counted += allocated;
                    refused += futures[slot].IsValid() ? 0 : 1;
                }
                if (++slot == burst)
                {
                    slot = 0;
                    drain();
                }
            }
            drain();
        };
        sendAll(std::min<std::int64_t>(o.calls, 64 * burst), false);
        const std::int64_t begin = NowNs();
        sendAll(o.calls, true);
        const std::int64_t elapsed = NowNs() - begin;

        Figures figures;
        SetLatencies(figures, samples);
        std::ofstream(o.dir + "/nonblocking.txt")
            << static_cast<double>(o.calls) * 1e9 / static_cast<double>(elapsed) << ' ' << figures.p50 << ' '
            << figures.p99 << ' ' << figures.p999 << ' ' << refused << ' '
            << static_cast<double>(counted) / static_cast<double>(o.calls) << '\n';
    }
    membership.reset();
}

// ---------------------------------------------------------------------------------------------------------
// The driver.

std::string SelfPath()
{
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

// The children alive, for the driver's signal handler: an interrupted run leaves no process behind.
constexpr int MaxChildren = 64;
std::atomic<pid_t> liveChildren[MaxChildren];

void KillChildrenAndExit(int signalNumber)
{
    for (auto& child : liveChildren)
    {
        if (const pid_t pid = child.load(); pid > 0)
        {
            kill(pid, SIGKILL);
        }
    }
    _exit(128 + signalNumber);
}

void Track(pid_t pid, pid_t replaced)
{
    for (auto& child : liveChildren)
    {
        pid_t expected = replaced;
        if (child.compare_exchange_strong(expected, pid))
        {
            return;
        }
    }
}

/// This process's environment, with the allocation counter preloaded where it was built.
std::vector<std::string> PreloadedEnvironment()
{
    std::vector<std::string> environment;
    std::string preload;
#ifdef KIV_BENCH_ALLOCATION_COUNT
    if (std::filesystem::exists(KIV_BENCH_ALLOCATION_COUNT))
    {
        preload = KIV_BENCH_ALLOCATION_COUNT;
    }
#endif
    for (char** variable = environ; *variable != nullptr; ++variable)
    {
        const std::string text = *variable;
        if (text.rfind("LD_PRELOAD=", 0) == 0)
        {
            preload += (preload.empty() ? "" : ":") + text.substr(11);
        }
        else
        {
            environment.push_back(text);
        }
    }
    if (!preload.empty())
    {
        environment.push_back("LD_PRELOAD=" + preload);
    }
    return environment;
}

/// The children of one run; killed and reaped whatever happens.
class Children
{
public:
    Children() = default;
    Children(const Children&) = delete;
    Children& operator=(const Children&) = delete;
    ~Children() { KillAndReap(); }

    void Exec(const std::vector<std::string>& arguments)
    {
        // Everything the child needs is made before fork.
        static const std::string self = SelfPath();
        std::vector<std::string> all{self};
        all.insert(all.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& argument : all)
        {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        static std::vector<std::string> environment = PreloadedEnvironment();
        std::vector<char*> envp;
        for (auto& variable : environment)
        {
            envp.push_back(variable.data());
        }
        envp.push_back(nullptr);
        const pid_t pid = fork();
        if (pid == 0)
        {
            execve(self.c_str(), argv.data(), envp.data());
            _exit(127);
        }
        Add(pid);
    }

    void Add(pid_t pid)
    {
        if (pid < 0)
        {
            throw std::runtime_error("fork failed");
        }
        running.push_back(pid);
        Track(pid, 0);
    }

    /// Waits until all have ended; false as soon as one fails or at the time limit.
    bool WaitAll()
    {
        const auto deadline = Clock::now() + WaitLimit + std::chrono::seconds(30);
        while (!running.empty())
        {
            for (auto it = running.begin(); it != running.end();)
            {
                int status = 0;
                const pid_t ended = waitpid(*it, &status, WNOHANG);
                if (ended == 0)
                {
                    ++it;
                    continue;
                }
                it = running.erase(it);
                Track(0, ended > 0 ? ended : 0);
                if (ended < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
                {
                    return false;
                }
            }
            if (Clock::now() > deadline)
            {
                std::cerr << "a run took too long\n";
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    void KillAndReap()
    {
        for (const pid_t pid : running)
        {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            Track(0, pid);
        }
        running.clear();
    }

private:
    std::vector<pid_t> running;
};

/// The directory of one run: named pipes, the settings file, endpoints and the results.
class RunDirectory
{
public:
    RunDirectory()
    {
        char pattern[] = "/tmp/kiv-bench-XXXXXX";
        if (mkdtemp(pattern) == nullptr)
        {
            throw std::runtime_error("cannot make a temporary directory");
        }
        path = pattern;
        for (const char* fifo :
             {"setup", "ready", "go", "ack", "leave", "done", "mark0", "mark1", "mark2", "marked"})
        {
            mkfifo((path + "/" + fifo).c_str(), 0600);
        }
        std::ofstream(path + "/settings.xml")
            << "<?xml version=\"1.0\"?>\n<NotificationManagerSettingsDocument>\n  <NotificationBroker "
               "queueLength=\""
            << BrokerQueueLength << "\"/>\n</NotificationManagerSettingsDocument>\n";
    }
    RunDirectory(const RunDirectory&) = delete;
    RunDirectory& operator=(const RunDirectory&) = delete;
    ~RunDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    std::string path;
};

std::optional<Figures> Fail(const std::string& why)
{
    std::cerr << "run failed: " << why << '\n';
    return std::nullopt;
}

void ReadExactly(int fd, char* buffer, std::size_t size)
{
    std::size_t done = 0;
    while (done < size)
    {
        const auto got = read(fd, buffer + done, size - done);
        if (got <= 0)
        {
            throw std::runtime_error("the socket closed");
        }
        done += static_cast<std::size_t>(got);
    }
}

void WriteAll(int fd, const char* buffer, std::size_t size)
{
    std::size_t done = 0;
    while (done < size)
    {
        const auto put = write(fd, buffer + done, size - done);
        if (put <= 0)
        {
            throw std::runtime_error("the socket closed");
        }
        done += static_cast<std::size_t>(put);
    }
}

/// The other end of the floor: echoes a 'P' message; on 'S<count>' swallows that many messages and
/// answers with one byte.
[[noreturn]] void FloorPeer(int fd)
{
    char message[PayloadLength];
    try
    {
        for (;;)
        {
            ReadExactly(fd, message, sizeof message);
            if (message[0] == 'S')
            {
                const long long count = std::strtoll(message + 1, nullptr, 10);
                std::vector<char> chunk(PayloadLength * 1024);
                std::size_t left = static_cast<std::size_t>(count) * PayloadLength;
                while (left > 0)
                {
                    const auto got = read(fd, chunk.data(), std::min(left, chunk.size()));
                    if (got <= 0)
                    {
                        _exit(1);
                    }
                    left -= static_cast<std::size_t>(got);
                }
                WriteAll(fd, message, 1);
                continue;
            }
            WriteAll(fd, message, sizeof message);
        }
    }
    catch (const std::exception&)
    {
        _exit(0);  // the driver closed its end
    }
}

std::optional<Figures> RunFloor(const Options& o, bool stream)
{
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
    {
        return Fail("socketpair");
    }
    Children children;
    const pid_t pid = fork();
    if (pid == 0)
    {
        close(fds[0]);
        FloorPeer(fds[1]);
    }
    close(fds[1]);
    children.Add(pid);
    Figures figures;
    std::string message = Text('P', 0);
    try
    {
        const auto pingPong = [&](int count, std::vector<double>* samples)
        {
            for (int i = 0; i < count; ++i)
            {
                const auto start = Clock::now();
                WriteAll(fds[0], message.data(), PayloadLength);
                ReadExactly(fds[0], message.data(), PayloadLength);
                if (samples)
                {
                    samples->push_back(
                        std::chrono::duration<double, std::nano>(Clock::now() - start).count() / 2);
                }
            }
        };
        pingPong(o.warmup * 2, nullptr);
        if (stream)
        {
            const std::string start = Text('S', o.floorMessages);
            const std::string payload = Text('D', 0);
            const auto begin = Clock::now();
            WriteAll(fds[0], start.data(), PayloadLength);
            for (int i = 0; i < o.floorMessages; ++i)
            {
                WriteAll(fds[0], payload.data(), PayloadLength);
            }
            char answer;
            ReadExactly(fds[0], &answer, 1);
            figures.rate = o.floorMessages / std::chrono::duration<double>(Clock::now() - begin).count();
        }
        else
        {
            std::vector<double> samples;
            samples.reserve(static_cast<std::size_t>(o.floorRoundTrips));
            const auto begin = Clock::now();
            pingPong(o.floorRoundTrips, &samples);
            figures.rate =
                2.0 * o.floorRoundTrips / std::chrono::duration<double>(Clock::now() - begin).count();
            SetLatencies(figures, samples);
        }
    }
    catch (const std::exception& e)
    {
        close(fds[0]);
        return Fail(e.what());
    }
    close(fds[0]);
    if (!children.WaitAll())
    {
        return Fail("the floor's peer failed");
    }
    return figures;
}

/// A process of a delivery scenario, as the driver lays it out.
struct ProcessPlan
{
    std::string name;
    bool broker = false;
    bool sender = false;
    int subscribers = 0;
};

std::optional<Figures> Collect(const RunDirectory& directory);

/// The counts of every process of a run, per notification of each phase; the unpaced allocations of all
/// together. `notifications`: how many the paced and the unpaced phase sent (the latter with its end).
void CollectCounts(const RunDirectory& directory, std::array<double, 2> notifications, Figures& figures)
{
    double allocations = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path))
    {
        const std::string file = entry.path().filename().string();
        if (file.rfind("counts-", 0) != 0)
        {
            continue;
        }
        std::ifstream in(entry.path());
        auto& process = figures.perProcess[file.substr(7, file.size() - 7 - 4)];
        for (int phase = 0; phase < 2; ++phase)
        {
            std::array<double, 6> values;
            for (auto& value : values)
            {
                in >> value;
                value = value < 0 || !in ? std::nan("") : value / notifications[phase];
            }
            process[phase] = {values[0], values[1], values[2], values[3], values[4], values[5]};
        }
        allocations += process[1].allocations;
    }
    if (!figures.perProcess.empty())
    {
        figures.allocationsPerNotification = allocations;
    }
}

/// How the sender sends its unpaced phase.
struct SenderMode
{
    int threads = 1;
    bool nonBlocking = false;
};

std::optional<Figures> RunDelivery(const Options& o, const std::vector<ProcessPlan>& plan, int run,
                                   SenderMode mode = {})
{
    RunDirectory directory;
    int totalSubscribers = 0;
    for (const auto& process : plan)
    {
        totalSubscribers += process.subscribers;
    }
    Children children;
    for (const auto& process : plan)
    {
        children.Exec(
            {"--role=process", "--dir=" + directory.path, fmt::format("--system=bench-{}-{}", getpid(), run),
             "--name=" + process.name, fmt::format("--broker={}", process.broker ? 1 : 0),
             fmt::format("--sender={}", process.sender ? 1 : 0),
             fmt::format("--subscribers={}", process.subscribers),
             fmt::format("--total-subscribers={}", totalSubscribers),
             fmt::format("--remote-processes={}", plan.size() - 1), fmt::format("--warmup={}", o.warmup),
             fmt::format("--latency-samples={}", o.latencySamples), fmt::format("--messages={}", o.messages),
             fmt::format("--in-process-messages={}", o.inProcessMessages),
             fmt::format("--counts={}", o.counts ? 1 : 0), fmt::format("--sender-threads={}", mode.threads),
             fmt::format("--non-blocking={}", mode.nonBlocking ? 1 : 0)});
    }
    if (!children.WaitAll())
    {
        return Fail("a process of the run failed");
    }
    return Collect(directory);
}

/// The figures that the processes of a run left in its directory.
std::optional<Figures> Collect(const RunDirectory& directory)
{
    Figures figures;
    std::int64_t sent = 0;
    std::int64_t dropped = 0;
    std::int64_t paced = 0;
    std::ifstream(directory.path + "/sender.txt") >> dropped >> sent >> paced;
    std::vector<double> latencies;
    std::int64_t delivered = 0;
    std::int64_t firstSent = 0;
    std::int64_t lastReceived = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path))
    {
        if (entry.path().filename().string().rfind("receiver-", 0) != 0)
        {
            continue;
        }
        std::ifstream in(entry.path());
        std::int64_t received = 0, first = 0, last = 0, malformed = 0;
        in >> received >> first >> last >> malformed;
        if (malformed != 0)
        {
            return Fail("a receiver saw a payload it did not send");
        }
        delivered += received;
        firstSent = firstSent == 0 ? first : std::min(firstSent, first);
        lastReceived = std::max(lastReceived, last);
        for (double latency; in >> latency;)
        {
            latencies.push_back(latency);
        }
    }
    if (latencies.empty() || delivered == 0 || lastReceived <= firstSent)
    {
        return Fail("nothing arrived");
    }
    figures.rate = static_cast<double>(delivered) * 1e9 / static_cast<double>(lastReceived - firstSent);
    figures.dropped = static_cast<double>(dropped);
    SetLatencies(figures, latencies);
    CollectCounts(directory, {static_cast<double>(paced), static_cast<double>(sent + 1)}, figures);
    return figures;
}

/// A program other than this one, with its standard output on a pipe when `out` is given.
pid_t Spawn(const std::string& path, const std::vector<std::string>& arguments, int* out = nullptr)
{
    std::vector<std::string> all{path};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& argument : all)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    int fds[2] = {-1, -1};
    if (out != nullptr && pipe2(fds, O_CLOEXEC) != 0)
    {
        return -1;
    }
    const pid_t pid = fork();
    if (pid == 0)
    {
        if (out != nullptr)
        {
            dup2(fds[1], STDOUT_FILENO);
        }
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (out != nullptr)
    {
        close(fds[1]);
        *out = fds[0];
    }
    return pid;
}

/// True once `fd` has given a line that is `wanted`, within the wait limit.
bool AwaitLine(int fd, const std::string& wanted)
{
    const auto deadline = Clock::now() + WaitLimit;
    std::string line;
    while (Clock::now() < deadline)
    {
        pollfd entry{fd, POLLIN, 0};
        char c = 0;
        if (poll(&entry, 1, 100) == 1 && read(fd, &c, 1) == 1)
        {
            if (c != '\n')
            {
                line += c;
            }
            else if (line == wanted)
            {
                return true;
            }
            else
            {
                line.clear();
            }
        }
    }
    return false;
}

/// Across machines: system A (broker with sender) -> kivnm-bridge -> mosquitto -> kivnm-bridge -> system B
/// (broker with subscriber), at QoS 1, all on this machine.
std::optional<Figures> RunBridge(const Options& o, int run)
{
    const std::string tools = std::filesystem::path(SelfPath()).parent_path().parent_path() / "tools";
    const std::string bridge = tools + "/kivnm-bridge";
    const std::string mosquitto = "/usr/sbin/mosquitto";
    if (!std::filesystem::exists(bridge) || !std::filesystem::exists(mosquitto))
    {
        return Fail("needs kivnm-bridge and mosquitto (scripts/install-deps.sh)");
    }
    RunDirectory directory;
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    const int port = ntohs(address.sin_port);
    std::ofstream(directory.path + "/mosquitto.conf")
        << "listener " << port
        << " 127.0.0.1\nallow_anonymous true\nlog_dest none\n"
        // The unpaced phase runs far ahead of the importing side; by default mosquitto would drop what
        // is queued for one client beyond 1000.
        << "max_queued_messages 0\n";
    const std::string system = fmt::format("bench-{}-{}", getpid(), run);
    for (const char* side : {"a", "b"})
    {
        std::ofstream(directory.path + "/bridge-" + side + ".xml")
            << "<KivNmBridgeSettings>\n  <Broker port=\"" << port << "\" clientId=\"" << system << side
            << "\" cleanSession=\"true\" qos=\"1\"/>\n  <Buffer notifications=\"1000000\"/>\n"
            << (side[0] == 'a' ? "  <Export name=\"Bench\"/>\n" : "  <Import topic=\"kiv/+/Bench/#\"/>\n")
            << "</KivNmBridgeSettings>\n";
    }
    const pid_t mqtt = Spawn(mosquitto, {"-c", directory.path + "/mosquitto.conf"});
    Children children;
    const auto process = [&](const char* side, bool sender)
    {
        children.Exec(
            {"--role=process", "--dir=" + directory.path, "--system=" + system + side,
             std::string("--name=Main") + side, "--broker=1", fmt::format("--sender={}", sender ? 1 : 0),
             fmt::format("--subscribers={}", sender ? 0 : 1), "--total-subscribers=1",
             fmt::format("--remote-processes={}", sender ? 1 : 0), "--bridged=1",
             fmt::format("--warmup={}", o.warmup), fmt::format("--latency-samples={}", o.latencySamples),
             fmt::format("--messages={}", o.messages)});
    };
    process("b", false);
    process("a", true);
    const Pipes pipes(directory.path);
    std::vector<int> outputs;
    std::vector<pid_t> bridges;
    for (const char* side : {"b", "a"})
    {
        int out = -1;
        bridges.push_back(Spawn(bridge,
                                {"--settings", directory.path + "/bridge-" + side + ".xml", "--system",
                                 system + side, "--endpoints", directory.path + "/endpoints"},
                                &out));
        outputs.push_back(out);
    }
    bool connected = true;
    for (const int out : outputs)
    {
        connected = connected && AwaitLine(out, "connected");
    }
    if (!connected)
    {
        for (const pid_t pid : {bridges[0], bridges[1], mqtt})
        {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        return Fail("a bridge did not connect");
    }
    pipes.go.Signal();
    // The two system processes end by themselves once the end has come; then the bridges and mosquitto.
    const bool ended = children.WaitAll();
    for (const pid_t pid : bridges)
    {
        kill(pid, SIGINT);
        waitpid(pid, nullptr, 0);
    }
    for (const int out : outputs)
    {
        close(out);
    }
    kill(mqtt, SIGTERM);
    waitpid(mqtt, nullptr, 0);
    if (!ended)
    {
        return Fail("a process of the bridged run failed");
    }
    return Collect(directory);
}

std::optional<Figures> RunNonBlockingChild(const Options& o, int run)
{
    RunDirectory directory;
    Children children;
    children.Exec({"--role=nonblocking", "--dir=" + directory.path,
                   fmt::format("--system=bench-{}-{}", getpid(), run), "--name=Sender", "--broker=1",
                   fmt::format("--calls={}", o.calls)});
    if (!children.WaitAll())
    {
        return Fail("the non-blocking run failed");
    }
    Figures figures;
    std::ifstream(directory.path + "/nonblocking.txt") >> figures.rate >> figures.p50 >> figures.p99 >>
        figures.p999 >> figures.dropped >> figures.allocations;
    return figures;
}

struct Row
{
    std::string key;
    std::string label;
    std::function<std::optional<Figures>(const Options&, int)> run;
};

struct Spread
{
    double median = std::nan("");
    double min = std::nan("");
    double max = std::nan("");
};

Spread SpreadOf(std::vector<double> values)
{
    values.erase(std::remove_if(values.begin(), values.end(), [](double v) { return std::isnan(v); }),
                 values.end());
    if (values.empty())
    {
        return {};
    }
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    const double median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    return {median, values.front(), values.back()};
}

std::string Number(double value, bool isRate)
{
    if (std::isnan(value))
    {
        return "";
    }
    if (isRate)
    {
        return value >= 1e6 ? fmt::format("{:.2f}M", value / 1e6) : fmt::format("{:.1f}k", value / 1e3);
    }
    const double us = value / 1000;
    return us < 1     ? fmt::format("{:.3f}", us)
           : us < 10  ? fmt::format("{:.2f}", us)
           : us < 100 ? fmt::format("{:.1f}", us)
                      : fmt::format("{:.0f}", us);
}

std::string Cell(const Spread& s, bool isRate)
{
    if (std::isnan(s.median))
    {
        return "-";
    }
    return fmt::format("{} ({}–{})", Number(s.median, isRate), Number(s.min, isRate), Number(s.max, isRate));
}

std::string Plain(const Spread& s)
{
    if (std::isnan(s.median))
    {
        return "-";
    }
    return s.min == s.max ? fmt::format("{:g}", s.median)
                          : fmt::format("{:g} ({:g}–{:g})", s.median, s.min, s.max);
}

std::string Json(const Spread& s)
{
    if (std::isnan(s.median))
    {
        return "null";
    }
    return fmt::format("{{\"median\": {}, \"min\": {}, \"max\": {}}}", s.median, s.min, s.max);
}

std::string JsonNumber(double value)
{
    return std::isnan(value) ? "null" : fmt::format("{}", value);
}

/// A count's median (min–max), in `scale` units.
std::string Rounded(const Spread& s, double scale = 1)
{
    if (std::isnan(s.median))
    {
        return "-";
    }
    const auto one = [&](double v) { return fmt::format("{:.1f}", v / scale); };
    return s.min == s.max ? one(s.median) : fmt::format("{} ({}–{})", one(s.median), one(s.min), one(s.max));
}

/// One value in `scale` units.
std::string Rounded(double value, double scale)
{
    return Rounded(Spread{value, value, value}, scale);
}

/// Sender, broker and four subscribers, each in a process of its own.
std::vector<ProcessPlan> FanOut4()
{
    return {{"Main", true, false, 0},  {"Sub1", false, false, 1}, {"Sub2", false, false, 1},
            {"Sub3", false, false, 1}, {"Sub4", false, false, 1}, {"Send", false, true, 0}};
}

struct CountField
{
    double Counts::*field;
    const char* key;    // in the JSON
    const char* label;  // in the table
    double scale;       // of the table
};

const std::array<CountField, 6> CountFields = {{
    {&Counts::syscalls, "syscalls", "system calls", 1},
    {&Counts::voluntarySwitches, "voluntary_context_switches", "voluntary switches", 1},
    {&Counts::involuntarySwitches, "involuntary_context_switches", "involuntary switches", 1},
    {&Counts::allocations, "allocations", "allocations", 1},
    {&Counts::cpuNs, "cpu_ns", "CPU µs", 1000},
    {&Counts::systemNs, "system_cpu_ns", "of it system µs", 1000},
}};

int Drive(const Options& o)
{
    const std::vector<Row> rows = {
        {"floor-ping-pong", "floor: Unix socket ping-pong, 2 processes",
         [](const Options& opt, int) { return RunFloor(opt, false); }},
        {"floor-stream", "floor: Unix socket stream, 2 processes",
         [](const Options& opt, int) { return RunFloor(opt, true); }},
        {"in-process", "one process: broker, sender, subscriber",
         [](const Options& opt, int run) {
             return RunDelivery(opt, {{"Main", true, true, 1}}, run);
         }},
        {"cross-process", "3 processes: sender, broker, subscriber",
         [](const Options& opt, int run)
         {
             return RunDelivery(
                 opt, {{"Main", true, false, 0}, {"Sub", false, false, 1}, {"Send", false, true, 0}}, run);
         }},
        {"cross-process-non-blocking", "3 processes, non-blocking sender kept fed",
         [](const Options& opt, int run)
         {
             return RunDelivery(
                 opt, {{"Main", true, false, 0}, {"Sub", false, false, 1}, {"Send", false, true, 0}}, run,
                 {1, true});
         }},
        {"cross-process-4-threads", "3 processes, 4 blocking sender threads",
         [](const Options& opt, int run)
         {
             return RunDelivery(
                 opt, {{"Main", true, false, 0}, {"Sub", false, false, 1}, {"Send", false, true, 0}}, run,
                 {4, false});
         }},
        {"cross-process-subscriber-with-broker", "2 processes: sender, broker with subscriber",
         [](const Options& opt, int run) {
             return RunDelivery(opt, {{"Main", true, false, 1}, {"Send", false, true, 0}}, run);
         }},
        {"fan-out-4", "6 processes: sender, broker, 4 subscribers",
         [](const Options& opt, int run) { return RunDelivery(opt, FanOut4(), run); }},
        {"fan-out-4-non-blocking", "6 processes, non-blocking sender kept fed",
         [](const Options& opt, int run) {
             return RunDelivery(opt, FanOut4(), run, {1, true});
         }},
        {"bridge", "2 systems: sender, broker, bridge, mosquitto (QoS 1), bridge, broker with subscriber",
         [](const Options& opt, int run) { return RunBridge(opt, run); }},
        {"non-blocking", "non-blocking send, caller side (same process)",
         [](const Options& opt, int run) { return RunNonBlockingChild(opt, run); }},
    };

    // Per process, per phase (paced, unpaced): the spread over the runs of each count.
    using CountSpreads = std::array<Spread, 6>;
    struct Result
    {
        const Row* row;
        Spread rate, p50, p99, p999, dropped, allocations, allocationsPerNotification;
        std::map<std::string, std::array<CountSpreads, 2>> counts;
        int failed = 0;
    };
    std::vector<Result> results;
    const bool progress = isatty(STDERR_FILENO) != 0;
    for (const auto& row : rows)
    {
        // --only=a,b: the rows whose key contains a or b.
        bool wanted = o.only.empty();
        for (std::size_t at = 0; !wanted && at <= o.only.size();)
        {
            const std::size_t comma = std::min(o.only.find(',', at), o.only.size());
            wanted = row.key.find(o.only.substr(at, comma - at)) != std::string::npos;
            at = comma + 1;
        }
        if (!wanted)
        {
            continue;
        }
        std::vector<Figures> figures;
        int failed = 0;
        for (int run = 0; run < o.runs; ++run)
        {
            if (progress)
            {
                std::cerr << "\r" << row.key << ": run " << run + 1 << "/" << o.runs << "   " << std::flush;
            }
            if (auto f = row.run(o, run))
            {
                figures.push_back(*f);
            }
            else
            {
                ++failed;
            }
        }
        if (progress)
        {
            std::cerr << "\r" << std::string(60, ' ') << "\r";
        }
        const auto collect = [&](double Figures::*field)
        {
            std::vector<double> values;
            for (const auto& f : figures)
            {
                values.push_back(f.*field);
            }
            return SpreadOf(values);
        };
        Result result{&row,
                      collect(&Figures::rate),
                      collect(&Figures::p50),
                      collect(&Figures::p99),
                      collect(&Figures::p999),
                      collect(&Figures::dropped),
                      collect(&Figures::allocations),
                      collect(&Figures::allocationsPerNotification),
                      {},
                      failed};
        for (const auto& [process, unused] :
             figures.empty() ? decltype(Figures::perProcess){} : figures[0].perProcess)
        {
            for (int phase = 0; phase < 2; ++phase)
            {
                for (std::size_t c = 0; c < CountFields.size(); ++c)
                {
                    std::vector<double> values;
                    for (const auto& f : figures)
                    {
                        const auto it = f.perProcess.find(process);
                        values.push_back(it == f.perProcess.end() ? std::nan("")
                                                                  : it->second[phase].*CountFields[c].field);
                    }
                    result.counts[process][phase][c] = SpreadOf(values);
                }
            }
        }
        results.push_back(std::move(result));
    }

    fmt::print("Median of {} runs (min–max). Latencies in µs; rate in messages or deliveries per second.\n\n",
               o.runs);
    fmt::print(
        "| Row | rate /s | p50 µs | p99 µs | p99.9 µs | dropped | allocs/call | allocs/notification |\n");
    fmt::print("|---|---|---|---|---|---|---|---|\n");
    for (const auto& r : results)
    {
        fmt::print("| {}{} | {} | {} | {} | {} | {} | {} | {} |\n", r.row->label,
                   r.failed ? fmt::format(" ({} runs failed)", r.failed) : "", Cell(r.rate, true),
                   Cell(r.p50, false), Cell(r.p99, false), Cell(r.p999, false), Plain(r.dropped),
                   Plain(r.allocations), Rounded(r.allocationsPerNotification));
    }
    // Against the floor of the same run: medians over medians.
    const Result* pingPong = nullptr;
    const Result* stream = nullptr;
    for (const auto& r : results)
    {
        pingPong = r.row->key == "floor-ping-pong" ? &r : pingPong;
        stream = r.row->key == "floor-stream" ? &r : stream;
    }
    const auto ratio = [](double value, const Result* floor, Spread Result::*field)
    { return floor == nullptr ? std::nan("") : value / (floor->*field).median; };
    const auto ratioText = [](double value)
    { return std::isnan(value) ? "-" : fmt::format("{:.3f}", value); };
    if (pingPong != nullptr || stream != nullptr)
    {
        fmt::print(
            "\n| Row | rate ÷ stream floor rate | rate ÷ ping-pong floor rate | p50 ÷ ping-pong floor p50 "
            "|\n");
        fmt::print("|---|---|---|---|\n");
        for (const auto& r : results)
        {
            fmt::print("| {} | {} | {} | {} |\n", r.row->key,
                       ratioText(ratio(r.rate.median, stream, &Result::rate)),
                       ratioText(ratio(r.rate.median, pingPong, &Result::rate)),
                       ratioText(ratio(r.p50.median, pingPong, &Result::p50)));
        }
    }
    if (o.counts)
    {
        fmt::print(
            "\nPer notification and process (median of the runs), paced phase / unpaced phase. The paced "
            "phase includes the benchmark's acknowledgement of each notification (one pipe write in a "
            "subscriber, a poll and a read in the sender).\n\n");
        for (const auto& r : results)
        {
            if (r.counts.empty())
            {
                continue;
            }
            fmt::print("{}\n\n| Process |", r.row->label);
            for (const auto& field : CountFields)
            {
                fmt::print(" {} |", field.label);
            }
            fmt::print("\n|---|{}\n",
                       []
                       {
                           std::string s;
                           for (std::size_t i = 0; i < CountFields.size(); ++i)
                               s += "---|";
                           return s;
                       }());
            std::array<std::array<double, 6>, 2> total{};
            for (const auto& [process, phases] : r.counts)
            {
                fmt::print("| {} |", process);
                for (std::size_t c = 0; c < CountFields.size(); ++c)
                {
                    fmt::print(" {} / {} |", Rounded(phases[0][c].median, CountFields[c].scale),
                               Rounded(phases[1][c].median, CountFields[c].scale));
                    total[0][c] += phases[0][c].median;
                    total[1][c] += phases[1][c].median;
                }
                fmt::print("\n");
            }
            fmt::print("| all |");
            for (std::size_t c = 0; c < CountFields.size(); ++c)
            {
                fmt::print(" {} / {} |", Rounded(total[0][c], CountFields[c].scale),
                           Rounded(total[1][c], CountFields[c].scale));
            }
            fmt::print("\n\n");
        }
    }
    if (!o.json.empty())
    {
        std::ofstream out(o.json);
        out << "{\n  \"runs\": " << o.runs << ",\n  \"cores\": " << std::thread::hardware_concurrency()
            << ",\n  \"units\": {\"rate\": \"per second\", \"latency\": \"ns\", \"cpu\": \"ns\"},\n  "
               "\"rows\": [\n";
        for (std::size_t i = 0; i < results.size(); ++i)
        {
            const auto& r = results[i];
            std::string counts;
            for (const auto& [process, phases] : r.counts)
            {
                counts += fmt::format("{}\"{}\": {{", counts.empty() ? "" : ", ", process);
                for (int phase = 0; phase < 2; ++phase)
                {
                    counts += fmt::format("{}\"{}\": {{", phase ? ", " : "", phase ? "unpaced" : "paced");
                    for (std::size_t c = 0; c < CountFields.size(); ++c)
                    {
                        counts += fmt::format("{}\"{}\": {}", c ? ", " : "", CountFields[c].key,
                                              Json(phases[phase][c]));
                    }
                    counts += "}";
                }
                counts += "}";
            }
            out << fmt::format(
                "    {{\"key\": \"{}\", \"label\": \"{}\", \"failed_runs\": {}, \"rate\": {}, "
                "\"p50_ns\": {}, \"p99_ns\": {}, \"p99_9_ns\": {}, \"dropped\": {}, "
                "\"allocations_per_call\": {}, \"allocations_per_notification\": {}, "
                "\"rate_to_floor_stream\": {}, \"rate_to_floor_ping_pong\": {}, \"p50_to_floor_ping_pong\": "
                "{}{}}}{}\n",
                r.row->key, r.row->label, r.failed, Json(r.rate), Json(r.p50), Json(r.p99), Json(r.p999),
                Json(r.dropped), Json(r.allocations), Json(r.allocationsPerNotification),
                JsonNumber(ratio(r.rate.median, stream, &Result::rate)),
                JsonNumber(ratio(r.rate.median, pingPong, &Result::rate)),
                JsonNumber(ratio(r.p50.median, pingPong, &Result::p50)),
                counts.empty() ? "" : ", \"per_notification\": {" + counts + "}",
                i + 1 < results.size() ? "," : "");
        }
        out << "  ]\n}\n";
        fmt::print("\nwritten to {}\n", o.json);
    }
    int status = 0;
    for (const auto& r : results)
    {
        if (r.failed)
        {
            status = 1;
        }
        if (r.allocations.max > 0)
        {
            fmt::print(stderr, "{}: the caller's thread allocated on the heap\n", r.row->key);
            status = 1;
        }
    }
    return status;
}
}  // namespace

int main(int argc, char** argv)
{
    try
    {
        const Options options = Parse(argc, argv);
        // Before the library starts a thread: the system calls of every later thread are counted.
        std::optional<SyscallCounter> syscalls;
        if (options.counts)
        {
            syscalls.emplace();
        }
        KivBench::AllocationCountFunctions::Get();
        if (options.role == "process")
        {
            RunProcess(options, syscalls ? *syscalls : SyscallCounter::None());
            return 0;
        }
        if (options.role == "nonblocking")
        {
            RunNonBlocking(options);
            return 0;
        }
        signal(SIGPIPE, SIG_IGN);
        signal(SIGINT, KillChildrenAndExit);
        signal(SIGTERM, KillChildrenAndExit);
        return Drive(options);
    }
    catch (const std::exception& e)
    {
        std::cerr << (argc > 1 ? argv[1] : "") << ": " << e.what() << '\n';
        return 1;
    }
}
