#pragma once

#include <Kiv/Threading/ConditionVariable.h>
#include <Kiv/Threading/Mutex.h>
#include <Kiv/Threading/Thread.h>

#include <cstdint>
#include <deque>
#include <memory>

namespace Kiv::System::Nm::Internal
{
/// A bounded FIFO of shared pointers between any number of producers and one consumer. The null pointer
/// is the consumer's stop marker; producers of real work never push it.
template <class T>
class ThreadSafeQueue
{
public:
    using Element = std::shared_ptr<T>;

    /// Capacity 0 is taken as it is: such a queue refuses everything.
    explicit ThreadSafeQueue(std::uint32_t capacity) : capacity(capacity), mutex(false) {}
    ThreadSafeQueue(const ThreadSafeQueue&) = delete;
    ThreadSafeQueue& operator=(const ThreadSafeQueue&) = delete;

    /// Appends unless full; never waits.
    bool TryPush(Element element)
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        if (elements.size() >= capacity)
        {
            return false;
        }
        elements.push_back(std::move(element));
        notEmpty.NotifyOne();
        return true;
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

    /// Waits without limit for an element and takes the front one.
    Element Pop()
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        while (elements.empty())
        {
            notEmpty.Wait(mutex);
        }
        Element front = std::move(elements.front());
        elements.pop_front();
        return front;
    }

    std::uint32_t GetCapacity() const noexcept { return capacity; }

private:
    std::deque<Element> elements;
    const std::uint32_t capacity;
    Commons::Threading::Mutex mutex;
    Commons::Threading::ConditionVariable notEmpty;
};
}  // namespace Kiv::System::Nm::Internal
