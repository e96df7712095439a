#include <Nm/Internal/NotificationBroker/NotificationBrokerThread.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatcherRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>
#include <Nm/Notification.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>

#include <Kiv/Exception.h>
#include <Kiv/System/Tul/TulAfterResponse.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Commons::Logging::LogLevel;
using Commons::Threading::MakeDelegate;
using Commons::Threading::ThreadSettings;

namespace
{
ThreadSettings BrokerThreadSettings()
{
    ThreadSettings settings;
    settings.name = NotificationBrokerThread::ThreadName;
    return settings;
}
}  // namespace

NotificationBrokerThread::NotificationBrokerThread(const NotificationNameRepository& names,
                                                   const NotificationDispatcherRepository& dispatchers,
                                                   const NotificationDispatchingRepository& dispatchTable,
                                                   ThreadSafeQueue<Notification>& queue,
                                                   std::chrono::nanoseconds slowDelivery)
    : names(names),
      dispatchers(dispatchers),
      dispatchTable(dispatchTable),
      queue(queue),
      slowDelivery(slowDelivery),
      thread(MakeDelegate(this, &NotificationBrokerThread::DispatchNotifications), nullptr,
             BrokerThreadSettings())
{
    taken.reserve(BatchBound + 1);
    failed.reserve(BatchBound);
}

NotificationBrokerThread::~NotificationBrokerThread()
{
    try
    {
        StopNotificationBrokerThread();
    }
    catch (...)
    {
        // A thread that can't be stopped would deliver into destroyed tables.
        std::terminate();
    }
}

void NotificationBrokerThread::Start()
{
    thread.Start();
}

void NotificationBrokerThread::StopNotificationBrokerThread()
{
    // Unconditional, also for a thread that never ran: behind a full queue that nobody drains this
    // waits for good, so a host that must stop whatever happens bounds its own shutdown.
    queue.Push(nullptr);
    if (thread.IsJoinable())
    {
        thread.Join();
    }
}

void NotificationBrokerThread::DispatchNotifications(void*)
{
    for (;;)
    {
        taken.clear();
        queue.PopUpTo(taken, BatchBound);
        const bool stop = taken.back() == nullptr;
        if (stop)
        {
            taken.pop_back();
        }
        Guarded([this] { Deliver(taken, 0); });
        taken.clear();
        queue.Release();
        if (stop)
        {
            return;
        }
    }
}

void NotificationBrokerThread::HandOverAfterResponse(pid_t caller) noexcept
{
    // Only the part's holder reads it; the queue's lock hands it on with the part.
    handOverCaller = caller;
    if (caller == 0 || !Tul::DeferUntilResponded(&NotificationBrokerThread::DeliverTakenOver, this))
    {
        queue.Release();
    }
}

void NotificationBrokerThread::DeliverTakenOver(void* self) noexcept
{
    auto& deliverer = *static_cast<NotificationBrokerThread*>(self);
    try
    {
        deliverer.taken.clear();
        deliverer.queue.TakeUpTo(deliverer.taken, BatchBound);
        const std::size_t handled = deliverer.Deliver(deliverer.taken, deliverer.handOverCaller);
        deliverer.queue.PutBack(deliverer.taken, handled);
        deliverer.taken.clear();
    }
    catch (...)
    {
        // Only memory can run out here; the part must go back whatever happened, or nothing is delivered
        // any more.
    }
    // The last touch: once the part is back, the broker may be stopped and gone.
    deliverer.queue.Release();
}

std::size_t NotificationBrokerThread::Deliver(const std::vector<Element>& batch, pid_t caller)
{
    matches.clear();
    failed.assign(batch.size(), false);
    const bool serving = caller != 0;
    std::optional<NotificationDispatcherId> only;
    // A serving thread holds up its caller's connection while it delivers: it takes on only what one
    // call to one dispatcher does, which is where it beats the broker's thread's wake-up; more, and the
    // broker's thread, delivering alongside the caller's next calls, is faster. Nor does it call a
    // dispatcher whose last delivery failed or was slow, which would hold the caller up as long.
    const auto notForServingThread = [&](const NotificationDispatchingRepository::Match& match)
    {
        const pid_t process = dispatchers.GetProcess(match.dispatcherId);
        const std::size_t index = match.dispatcherId.GetValue();
        return process == 0 || process == caller || (only && *only != match.dispatcherId) ||
               (index < slowDispatchers.size() && slowDispatchers[index]);
    };
    std::size_t count = 0;
    for (; count < batch.size(); ++count)
    {
        const std::size_t before = matches.size();
        // The broker's thread logs the failure when it takes the notification on.
        const bool matched = Guarded(
            [&]
            {
                names.GetMatchingIds(batch[count]->GetNotificationNameId(), matchingIds);
                dispatchTable.AppendMatches(matchingIds, static_cast<std::uint32_t>(count), matches);
            },
            serving ? 0 : 1);
        if (!matched && !serving)
        {
            failed[count] = true;
            matches.resize(before);
            continue;
        }
        if (serving && (!matched || std::any_of(matches.begin() + static_cast<std::ptrdiff_t>(before),
                                                matches.end(), notForServingThread)))
        {
            matches.resize(before);
            break;
        }
        if (serving && matches.size() > before)
        {
            only = matches[before].dispatcherId;
        }
    }
    // Ascending dispatcher id, then queue order, then the order of the name ids.
    std::sort(matches.begin(), matches.end());
    for (std::size_t first = 0; first < matches.size();)
    {
        std::size_t end = first + 1;
        while (end < matches.size() && matches[end].dispatcherId == matches[first].dispatcherId)
        {
            ++end;
        }
        DispatchTo(batch, first, end);
        first = end;
    }
    return count;
}

void NotificationBrokerThread::DispatchTo(const std::vector<Element>& batch, std::size_t first,
                                          std::size_t end)
{
    const NotificationDispatcherId dispatcherId = matches[first].dispatcherId;
    dispatchBatch.Clear();
    batchIndexes.clear();
    for (std::size_t row = first; row < end;)
    {
        const std::uint32_t notification = matches[row].notification;
        nameIds.clear();
        for (; row < end && matches[row].notification == notification; ++row)
        {
            nameIds.push_back(matches[row].nameId.GetValue());
        }
        if (!failed[notification])
        {
            dispatchBatch.Add(batch[notification], nameIds.data(), nameIds.size());
            batchIndexes.push_back(notification);
        }
    }
    if (batchIndexes.empty())
    {
        return;
    }
    const auto start = std::chrono::steady_clock::now();
    const bool delivered = Guarded(
        [&]
        {
            auto service = dispatchers.GetService(dispatcherId);
            if (batchIndexes.size() == 1)
            {
                // One notification takes the one-notification call, with its name ids as they are.
                service->Dispatch(*dispatchBatch.notifications.front(), dispatchBatch.nameIds);
                return;
            }
            for (const auto& failure : service->DispatchBatch(dispatchBatch))
            {
                if (failure.index < batchIndexes.size())
                {
                    failed[batchIndexes[failure.index]] = true;
                    LogFailures(failure.message.GetChars(), 1);
                }
            }
        },
        batchIndexes.size());
    if (!delivered)
    {
        for (const std::uint32_t notification : batchIndexes)
        {
            failed[notification] = true;
        }
    }
    const std::size_t index = dispatcherId.GetValue();
    if (index >= slowDispatchers.size())
    {
        slowDispatchers.resize(index + 1, false);
    }
    slowDispatchers[index] = !delivered || std::chrono::steady_clock::now() - start > slowDelivery;
    dispatchBatch.Clear();
}

template <class TCall>
bool NotificationBrokerThread::Guarded(TCall call, std::size_t notifications)
{
    try
    {
        call();
        return true;
    }
    catch (const Exception& e)
    {
        LogFailures(e.ToString().c_str(), notifications);
    }
    catch (const std::exception& e)
    {
        LogFailures(e.what(), notifications);
    }
    catch (...)
    {
        for (std::size_t i = 0; i < notifications; ++i)
        {
            Log(LogLevel::Error, "Caught unknown exception during notification dispatch.");
        }
    }
    return false;
}

void NotificationBrokerThread::LogFailures(const char* text, std::size_t notifications)
{
    // Once for each notification that the failure cost, as if each had been sent on its own.
    for (std::size_t i = 0; i < notifications; ++i)
    {
        Log(LogLevel::Error, "Caught exception during notification dispatch: {0}", text);
    }
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
