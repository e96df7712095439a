#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// A bounded FIFO over slots that are made once, default-constructed, and never resized: elements are
/// moved into and out of the slots, so nothing is allocated after construction. A count tells full from
/// empty, so all slots are usable. Not thread-safe; see ThreadSafeRingBuffer.
template <class T>
class RingBuffer
{
public:
    /// A capacity beyond what a vector can hold fails with the vector's length error. Capacity 0 gives a
    /// buffer that is always full.
    explicit RingBuffer(std::uint32_t capacity) : buffer(capacity) {}
    RingBuffer(const RingBuffer&) = delete;
    RingBuffer& operator=(const RingBuffer&) = delete;

    /// Moves `item` into the next slot; false, with `item` untouched, when the buffer is full.
    bool TryPush(T& item)
    {
        if (count == buffer.size())
        {
            return false;
        }
        buffer[writeIndex] = std::move(item);
        writeIndex = Next(writeIndex);
        ++count;
        return true;
    }

    /// Moves the oldest element into `target`; false, with `target` untouched, when the buffer is empty.
    /// The slot keeps a moved-from element until it is filled again.
    bool TryPop(T& target)
    {
        if (count == 0)
        {
            return false;
        }
        target = std::move(buffer[readIndex]);
        readIndex = Next(readIndex);
        --count;
        return true;
    }

    /// The oldest element; only for a buffer that is not empty.
    const T& Front() const noexcept { return buffer[readIndex]; }

    std::uint32_t GetCapacity() const noexcept { return static_cast<std::uint32_t>(buffer.size()); }
    std::uint32_t GetCount() const noexcept { return count; }
    bool IsEmpty() const noexcept { return count == 0; }

private:
    std::uint32_t Next(std::uint32_t index) const noexcept
    {
        return static_cast<std::uint32_t>((index + 1) % buffer.size());
    }

    std::vector<T> buffer;
    std::uint32_t readIndex = 0;
    std::uint32_t writeIndex = 0;
    std::uint32_t count = 0;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
