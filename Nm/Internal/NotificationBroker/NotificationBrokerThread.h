#pragma once

#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>
#include <Nm/Internal/ThreadSafeQueue.h>
#include <Nm/Services/Internal/NotificationBatch.h>

#include <Kiv/Export.h>
#include <Kiv/Logging/Loggable.h>
#include <Kiv/Threading/Thread.h>

#include <cstdint>
#include <memory>
#include <vector>

#include <sys/types.h>

namespace Kiv::System::Nm
{
class Notification;
}

namespace Kiv::System::Nm::Internal::NotificationBroker
{
class NotificationNameRepository;
class NotificationDispatcherRepository;
class NotificationDispatchingRepository;

/// The one delivery thread of the system: takes the notifications waiting in the queue, up to BatchBound
/// at a time, and gives each interested dispatcher, in ascending dispatcher id, the ones it wants: one
/// Dispatch call for a single notification, else one DispatchBatch call. A notification whose delivery
/// to a dispatcher failed is not given to the dispatchers after it. Holds no lock while it delivers.
///
/// A thread serving a remote send may take the delivery over from an idle broker thread, after its
/// caller's response, instead of waking it (HandOverAfterResponse): the queue lets one deliverer at a
/// time take, so queue order holds. Such a thread leaves to the broker's thread every notification that
/// the broker's own process wants (its subscribers run on the broker's thread) or the caller's process
/// wants (a subscriber there that calls the broker would wait for the very connection that this thread
/// serves) or that takes more than one dispatcher call or goes to a dispatcher whose last delivery failed
/// or was slow, and those behind it: a serving thread's delivery holds its caller's next call up.
class KIV_API NotificationBrokerThread
    : private Commons::Logging::Loggable<NotificationBrokerThread, false, false>
{
public:
    static constexpr const char* ThreadName = "NotificationBrokerThread";
    /// Enough to carry a burst in few calls; small enough that one call stays within the frame limit
    /// of payloads of ordinary size and a slow dispatcher holds few others back.
    static constexpr std::size_t BatchBound = 64;
    /// A delivery that takes longer marks its dispatcher as one that serving threads leave to this
    /// thread.
    static constexpr std::chrono::milliseconds DefaultSlowDelivery{1};

    NotificationBrokerThread(const NotificationNameRepository& names,
                             const NotificationDispatcherRepository& dispatchers,
                             const NotificationDispatchingRepository& dispatchTable,
                             ThreadSafeQueue<Notification>& queue,
                             std::chrono::nanoseconds slowDelivery = DefaultSlowDelivery);
    NotificationBrokerThread(const NotificationBrokerThread&) = delete;
    NotificationBrokerThread& operator=(const NotificationBrokerThread&) = delete;
    /// Delivers what is queued ahead of the stop marker, then joins. A thread that never ran is not
    /// joined and the queue keeps what it holds.
    virtual ~NotificationBrokerThread();

    void Start();

    /// For a sender whose push took the queue's consumer part over: delivers after the response of the
    /// call this thread serves, from process `caller`, or, outside a served call, gives the part back to
    /// the broker's thread.
    void HandOverAfterResponse(pid_t caller) noexcept;

private:
    using Element = std::shared_ptr<Notification>;

    void DispatchNotifications(void*);
    static void DeliverTakenOver(void* self) noexcept;
    /// Delivers the first notifications of `batch` in order and returns how many it handled: all of
    /// them, or, for a serving thread (`caller` not 0), those ahead of the first that the broker's own
    /// process or the caller's process wants, or that another dispatcher than the ones before wants.
    std::size_t Deliver(const std::vector<Element>& batch, pid_t caller);
    /// Gives the dispatcher of `matches[first, end)` its notifications that have not failed so far.
    void DispatchTo(const std::vector<Element>& batch, std::size_t first, std::size_t end);
    /// Runs `call`; what it throws is logged once for each of `notifications`, and false returned.
    template <class TCall>
    bool Guarded(TCall call, std::size_t notifications = 1);
    void LogFailures(const char* text, std::size_t notifications);
    void StopNotificationBrokerThread();

    const NotificationNameRepository& names;
    const NotificationDispatcherRepository& dispatchers;
    const NotificationDispatchingRepository& dispatchTable;
    ThreadSafeQueue<Notification>& queue;
    // Used only by the holder of the queue's consumer part, which the queue's lock passes on: kept
    // between batches, so that a steady stream allocates nothing for matching.
    std::vector<Element> taken;
    std::vector<NotificationNameId> matchingIds;
    std::vector<NotificationDispatchingRepository::Match> matches;
    std::vector<bool> failed;
    std::vector<std::uint32_t> nameIds;
    Services::Internal::NotificationBatch dispatchBatch;
    std::vector<std::uint32_t> batchIndexes;
    pid_t handOverCaller = 0;
    // By dispatcher id: whether its last delivery failed or was slow.
    std::vector<bool> slowDispatchers;
    const std::chrono::nanoseconds slowDelivery;
    Commons::Threading::Thread thread;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
