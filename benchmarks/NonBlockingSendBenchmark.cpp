// What a non-blocking send costs the calling thread: every call is timed on its own, and the median,
// 99th and 99.9th percentiles go out as counters in nanoseconds (the clock's own cost included; it is
// reported as clock_ns). The worker runs the records against a blocking side that answers at once; the
// caller sends in bursts of half the ring buffer and lets the worker drain in between, untimed, so that
// the buffer takes every call. With tracepoints compiled in, no tracer attached.

#include <Nm/INotificationSending.h>
#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>
#include <Nm/NonBlockingNotificationRegistration3ArgumentsBufferBase.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::NonBlockingNotificationSending::Proxy;
using Clock = std::chrono::steady_clock;

namespace
{
constexpr unsigned QueueLength = 128;  // the default of the settings
constexpr unsigned Burst = QueueLength / 2;
constexpr std::int64_t Calls = 1 << 20;

class ImmediateSending : public INotificationSending
{
public:
    NotificationNameId RegisterNotification(const Kiv::String&, const Kiv::String&, Severity,
                                            PayloadTypeId) override
    {
        return NotificationNameId(1);
    }
    void UnregisterNotification(NotificationNameId) override {}
    NotificationId SendNotification(NotificationNameId, Kiv::DateTime,
                                    const std::vector<TulVariant<512>>& payload) override
    {
        benchmark::DoNotOptimize(payload.data());
        return NotificationId(++lastId);
    }
    NotificationId SendNotification(NotificationNameId, Kiv::DateTime, const IPayload&) override
    {
        return NotificationId(0);
    }

private:
    std::uint64_t lastId = 0;
};

std::vector<TulVariant<512>> ThreeNumbers(NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg arg)
{
    const auto value = static_cast<std::int32_t>(arg.position);
    return {TulVariant<512>("{0} {1} {2}"), TulVariant<512>(value), TulVariant<512>(value),
            TulVariant<512>(value)};
}

double Percentile(std::vector<double>& samples, double fraction)
{
    const auto index = static_cast<std::size_t>(fraction * static_cast<double>(samples.size() - 1));
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(index), samples.end());
    return samples[index];
}

double ClockCost()
{
    std::vector<double> samples(100'000);
    for (auto& sample : samples)
    {
        const auto start = Clock::now();
        sample = std::chrono::duration<double, std::nano>(Clock::now() - start).count();
    }
    return Percentile(samples, 0.5);
}

void Report(benchmark::State& state, std::vector<double>& samples)
{
    state.counters["median_ns"] = Percentile(samples, 0.5);
    state.counters["p99_ns"] = Percentile(samples, 0.99);
    state.counters["p99.9_ns"] = Percentile(samples, 0.999);
    state.counters["max_ns"] = *std::max_element(samples.begin(), samples.end());
    state.counters["clock_ns"] = ClockCost();
}

/// Times `send(i)` for every iteration; after each burst, waits untimed until `drained()`.
template <class Send, class Drained>
void TimeCalls(benchmark::State& state, Send send, Drained drained)
{
    std::vector<double> samples;
    samples.reserve(static_cast<std::size_t>(state.max_iterations));
    unsigned inBurst = 0;
    for (auto _ : state)
    {
        const auto start = Clock::now();
        send(inBurst);
        const auto end = Clock::now();
        const double nanoseconds = std::chrono::duration<double, std::nano>(end - start).count();
        samples.push_back(nanoseconds);
        state.SetIterationTime(nanoseconds / 1e9);
        if (++inBurst == Burst)
        {
            inBurst = 0;
            while (!drained())
            {
                std::this_thread::yield();
            }
        }
    }
    state.SetItemsProcessed(state.iterations());
    Report(state, samples);
}

/// The path of a non-blocking registration: function pointer, position, Future made ahead of time.
void SendWithFutureMadeAhead(benchmark::State& state)
{
    ImmediateSending sending;
    Proxy proxy(sending, QueueLength);
    auto arguments = std::make_shared<NonBlockingNotificationRegistration3ArgumentsBufferBase>();
    std::vector<Future<NotificationId>> futures;
    for (unsigned i = 0; i < Burst; ++i)
    {
        futures.push_back(Future<NotificationId>::CreateByPromise());
        futures.back().SetValue(NotificationId(1));
    }
    const Kiv::DateTime stamp = Kiv::DateTime::GetUtcNow();
    std::int64_t refused = 0;
    TimeCalls(
        state,
        [&](unsigned i)
        {
            proxy.NonBlockingSendNotification(NotificationNameId(1), stamp, &ThreeNumbers, {arguments, i},
                                              futures[i]);
            refused += futures[i].IsValid() ? 0 : 1;
        },
        [&] { return futures[Burst - 1].HasValue() || !futures[Burst - 1].IsValid(); });
    state.counters["refused"] = static_cast<double>(refused);
}

/// The general form: the payload vector is copied and a new Future is made on every call.
void SendWithPayloadVector(benchmark::State& state)
{
    ImmediateSending sending;
    Proxy proxy(sending, QueueLength);
    const std::vector<TulVariant<512>> payload = ThreeNumbers({nullptr, 7});
    const Kiv::DateTime stamp = Kiv::DateTime::GetUtcNow();
    std::vector<Future<NotificationId>> futures(Burst);
    std::int64_t refused = 0;
    TimeCalls(
        state,
        [&](unsigned i)
        {
            futures[i] = proxy.NonBlockingSendNotification(NotificationNameId(1), stamp, payload);
            refused += futures[i].IsValid() ? 0 : 1;
        },
        [&] { return futures[Burst - 1].HasValue() || !futures[Burst - 1].IsValid(); });
    state.counters["refused"] = static_cast<double>(refused);
}

/// A full ring buffer: the record is built and refused.
void SendRefusedByAFullBuffer(benchmark::State& state)
{
    ImmediateSending sending;
    Proxy proxy(sending, 0);
    auto arguments = std::make_shared<NonBlockingNotificationRegistration3ArgumentsBufferBase>();
    Future<NotificationId> future = Future<NotificationId>::CreateByPromise();
    const Kiv::DateTime stamp = Kiv::DateTime::GetUtcNow();
    std::int64_t refused = 0;
    TimeCalls(
        state,
        [&](unsigned i)
        {
            proxy.NonBlockingSendNotification(NotificationNameId(1), stamp, &ThreeNumbers, {arguments, i},
                                              future);
            refused += future.IsValid() ? 0 : 1;
        },
        [] { return true; });
    state.counters["refused"] = static_cast<double>(refused);
}
}  // namespace

BENCHMARK(SendWithFutureMadeAhead)->Iterations(Calls)->UseManualTime()->Unit(benchmark::kNanosecond);
BENCHMARK(SendWithPayloadVector)->Iterations(Calls)->UseManualTime()->Unit(benchmark::kNanosecond);
BENCHMARK(SendRefusedByAFullBuffer)->Iterations(Calls)->UseManualTime()->Unit(benchmark::kNanosecond);

BENCHMARK_MAIN();
