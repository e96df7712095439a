#pragma once

#include <Kiv/BasicString.h>

#include <cstddef>
#include <cstdint>

namespace Kiv::System::Commons::Threading
{
/// How a thread is made. Zero in a numeric field means the platform's default.
struct ThreadSettings
{
    String name;
    /// Real-time priority (SCHED_FIFO, 1..99); 0 leaves the default scheduling.
    int priority = 0;
    /// Bit i set allows core i; 0 allows every core.
    std::uint64_t affinityMask = 0;
    /// Stack size in bytes; 0 takes the default.
    std::size_t stackSize = 0;
};
}  // namespace Kiv::System::Commons::Threading
