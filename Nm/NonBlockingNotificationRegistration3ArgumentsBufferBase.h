#pragma once

#include <Kiv/Export.h>

#include <cstdint>

namespace Kiv::System::Nm
{
/// The root of the buffers in which a non-blocking registration leaves the raw arguments of a
/// notification for the payload function, which runs later on the worker thread. The library never calls
/// into a buffer; it only keeps it alive, by shared pointer, until that function has used it. A derived
/// buffer must cope with one writer (the sender) and one reader (the worker) at a time.
class KIV_API NonBlockingNotificationRegistration3ArgumentsBufferBase
{
public:
    /// What a buffer reports when it is given the arguments of one notification.
    struct InsertResult
    {
        /// Where the arguments went; handed unchanged to the payload function.
        std::uint32_t position = 0;
        /// Whether the buffer could take them; must be truthful.
        bool inserted = false;
    };

    NonBlockingNotificationRegistration3ArgumentsBufferBase() = default;
    NonBlockingNotificationRegistration3ArgumentsBufferBase(
        const NonBlockingNotificationRegistration3ArgumentsBufferBase&) = default;
    NonBlockingNotificationRegistration3ArgumentsBufferBase(
        NonBlockingNotificationRegistration3ArgumentsBufferBase&&) = default;
    NonBlockingNotificationRegistration3ArgumentsBufferBase& operator=(
        const NonBlockingNotificationRegistration3ArgumentsBufferBase&) = default;
    NonBlockingNotificationRegistration3ArgumentsBufferBase& operator=(
        NonBlockingNotificationRegistration3ArgumentsBufferBase&&) = default;
    virtual ~NonBlockingNotificationRegistration3ArgumentsBufferBase();
};
}  // namespace Kiv::System::Nm
