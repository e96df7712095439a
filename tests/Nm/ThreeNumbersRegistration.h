#pragma once

// The typed front that a user of the library writes on top of the non-blocking registration bases: a
// notification whose payload is three numbers, with a fixed-size arguments buffer.

#include <Nm/NonBlockingNotificationRegistration3ArgumentsBufferBase.h>
#include <Nm/NonBlockingNotificationRegistration3Base.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace Kiv::Testing
{
using namespace Kiv::System::Nm;

/// Fixed entries, filled in turn by the sender and emptied by the payload function on the worker: one
/// writer and one reader, synchronised per entry.
class ThreeNumbersArgumentsBuffer : public NonBlockingNotificationRegistration3ArgumentsBufferBase
{
public:
    using Numbers = std::array<std::int32_t, 3>;

    static constexpr const char* Format = "Numbers {0}, {1}, {2}";

    explicit ThreeNumbersArgumentsBuffer(std::uint32_t capacity) : entries(capacity) {}

    InsertResult Insert(const Numbers& numbers)
    {
        if (entries.empty() || entries[next].filled.load(std::memory_order_acquire))
        {
            return {0, false};
        }
        entries[next].numbers = numbers;
        entries[next].filled.store(true, std::memory_order_release);
        const InsertResult result{next, true};
        next = static_cast<std::uint32_t>((next + 1) % entries.size());
        return result;
    }

    /// Gives an entry back whose record will never run.
    void Release(std::uint32_t position) { entries[position].filled.store(false, std::memory_order_release); }

    std::uint32_t CountFilled() const
    {
        return static_cast<std::uint32_t>(std::count_if(
            entries.begin(), entries.end(), [](const Entry& entry) { return entry.filled.load(); }));
    }

    /// The payload function: runs on the worker.
    static std::vector<TulVariant<512>> CreatePayload(
        NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg arg)
    {
        auto& buffer = static_cast<ThreeNumbersArgumentsBuffer&>(*arg.argumentsBuffer);
        Entry& entry = buffer.entries.at(arg.position);
        if (!entry.filled.load(std::memory_order_acquire))
        {
            return {};
        }
        const Numbers numbers = entry.numbers;
        entry.filled.store(false, std::memory_order_release);
        return {TulVariant<512>(Format), TulVariant<512>(numbers[0]), TulVariant<512>(numbers[1]),
                TulVariant<512>(numbers[2])};
    }

private:
    struct Entry
    {
        std::atomic<bool> filled{false};
        Numbers numbers{};
    };

    std::vector<Entry> entries;
    std::uint32_t next = 0;
};

class ThreeNumbersRegistration : public NonBlockingNotificationRegistration3Base
{
public:
    ThreeNumbersRegistration(std::unique_ptr<NonBlockingNotificationSendingAdapter> adapter,
                             std::uint32_t bufferCapacity)
        : NonBlockingNotificationRegistration3Base(std::move(adapter)),
          buffer(std::make_shared<ThreeNumbersArgumentsBuffer>(bufferCapacity))
    {
    }

    /// True if the send was queued. False if the object is not registered, the previous send is still
    /// under way, the arguments buffer is full (the Future is reset) or the ring buffer refused (the
    /// Future is invalid).
    bool Send(const DateTime& timestamp, const ThreeNumbersArgumentsBuffer::Numbers& numbers)
    {
        if (!IsReadyToSend() || (!IsCompleted() && GetFutureNotificationId().IsValid()))
        {
            return false;
        }
        const InsertResult inserted = buffer->Insert(numbers);
        SendNotificationInternal(timestamp, buffer, inserted, &ThreeNumbersArgumentsBuffer::CreatePayload);
        if (inserted.inserted && !GetFutureNotificationId().IsValid())
        {
            // The record died without running, so nobody else will free the entry.
            buffer->Release(inserted.position);
            return false;
        }
        return inserted.inserted;
    }

    const ThreeNumbersArgumentsBuffer& GetBuffer() const { return *buffer; }

private:
    std::shared_ptr<ThreeNumbersArgumentsBuffer> buffer;
};
}  // namespace Kiv::Testing
