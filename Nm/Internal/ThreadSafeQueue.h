#pragma once

#include <Kiv/Threading/ConditionVariable.h>
#include <Kiv/Threading/Mutex.h>
#include <Kiv/Threading/Thread.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace Kiv::System::Nm::Internal
{
/// A bounded FIFO of shared pointers between any number of producers and one consumer thread. The null
/// pointer is the consumer's stop marker; producers of real work never push it.
///
/// The consumer's part (taking elements and handling them) is held by one thread at a time: the consumer
/// thread, or a producer that found the consumer thread idle and took the part over instead of waking it
/// (TryPush with `mayTakeOver`). Elements are thus handled by one thread at a time, in queue order.
template <class T>
class ThreadSafeQueue
{
public:
    using Element = std::shared_ptr<T>;

    enum class Pushed
    {
        Refused,
        Queued,
        /// Queued, and the caller now holds the consumer's part: it takes (TakeUpTo) and gives the part
        /// back (Release); the consumer thread was not woken.
        TakenOver
    };

    /// Capacity 0 is taken as it is: such a queue refuses everything.
    explicit ThreadSafeQueue(std::uint32_t capacity) : capacity(capacity), mutex(false) {}
    ThreadSafeQueue(const ThreadSafeQueue&) = delete;
    ThreadSafeQueue& operator=(const ThreadSafeQueue&) = delete;

    /// Appends unless full; never waits.
    bool TryPush(Element element) { return TryPush(std::move(element), false) != Pushed::Refused; }

    /// Appends unless full; never waits. With `mayTakeOver`, a caller that finds the consumer thread
    /// waiting and nobody else holding the part takes the part over.
    Pushed TryPush(Element element, bool mayTakeOver)
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        if (elements.size() >= capacity)
        {
            return Pushed::Refused;
        }
        elements.push_back(std::move(element));
        if (partHeld)
        {
            // Its holder looks again before it gives the part back.
            return Pushed::Queued;
        }
        if (mayTakeOver && consumerWaiting)
        {
            partHeld = true;
            return Pushed::TakenOver;
        }
        notEmpty.NotifyOne();
        return Pushed::Queued;
    }

    /// Appends, retrying every millisecond until there is room, without limit. Only the stop marker
    /// goes this way, so that it can't be lost behind a full queue.
    void Push(Element element)
    {
        for (;;)
        {
            {
                Commons::Threading::Mutex::ScopedLock lock(mutex);
                if (elements.size() < capacity)
                {
                    elements.push_back(std::move(element));
                    notEmpty.NotifyOne();
                    return;
                }
            }
            Commons::Threading::Thread::Sleep(1);
        }
    }

    /// Waits without limit for an element and takes the front one; the consumer's part is not taken.
    Element Pop()
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        WaitForPart();
        Element front = std::move(elements.front());
        elements.pop_front();
        return front;
    }

    /// The consumer thread: waits until an element is there and the part is free, takes the part and
    /// appends up to `bound` elements from the front to `into`, a stop marker included as the last.
    void PopUpTo(std::vector<Element>& into, std::size_t bound)
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        WaitForPart();
        partHeld = true;
        Take(into, bound, true);
    }

    /// The holder of the part: appends up to `bound` elements from the front to `into`, stopping before a
    /// stop marker, which is the consumer thread's to take.
    void TakeUpTo(std::vector<Element>& into, std::size_t bound)
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        Take(into, bound, false);
    }

    /// The holder of the part: puts `taken[from...]` back at the front, in their order, for the consumer
    /// thread.
    void PutBack(std::vector<Element>& taken, std::size_t from)
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        for (std::size_t i = taken.size(); i > from; --i)
        {
            elements.push_front(std::move(taken[i - 1]));
        }
        taken.resize(from);
    }

    /// The holder gives the part back; the consumer thread is woken if elements wait.
    void Release()
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        partHeld = false;
        if (!elements.empty())
        {
            notEmpty.NotifyOne();
        }
    }

    std::uint32_t GetCapacity() const noexcept { return capacity; }

private:
    void WaitForPart()
    {
        while (elements.empty() || partHeld)
        {
            consumerWaiting = true;
            notEmpty.Wait(mutex);
            consumerWaiting = false;
        }
    }

    void Take(std::vector<Element>& into, std::size_t bound, bool withStopMarker)
    {
        for (std::size_t taken = 0; taken < bound && !elements.empty(); ++taken)
        {
            const bool stop = elements.front() == nullptr;
            if (stop && !withStopMarker)
            {
                return;
            }
            into.push_back(std::move(elements.front()));
            elements.pop_front();
            if (stop)
            {
                return;
            }
        }
    }

    std::deque<Element> elements;
    const std::uint32_t capacity;
    Commons::Threading::Mutex mutex;
    Commons::Threading::ConditionVariable notEmpty;
    bool partHeld = false;
    bool consumerWaiting = false;
};
}  // namespace Kiv::System::Nm::Internal
