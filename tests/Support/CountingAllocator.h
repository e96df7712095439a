#pragma once

// Replaces operator new and delete of the whole program, the libraries included, by forms that count the
// allocations of a thread while it asks them to. Include it in one source file of a program only.

#include <cstdint>
#include <cstdlib>
#include <new>

namespace Kiv::Testing
{
namespace CountingAllocatorState
{
inline thread_local bool counting = false;
inline thread_local std::uint64_t allocations = 0;

inline void* Allocate(std::size_t size)
{
    allocations += counting ? 1 : 0;
    if (void* memory = std::malloc(size == 0 ? 1 : size))
    {
        return memory;
    }
    throw std::bad_alloc();
}
}  // namespace CountingAllocatorState

/// Counts what the calling thread allocates while it exists.
struct AllocationCounter
{
    AllocationCounter()
    {
        CountingAllocatorState::allocations = 0;
        CountingAllocatorState::counting = true;
    }
    ~AllocationCounter() { CountingAllocatorState::counting = false; }
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;
    std::uint64_t Get() const { return CountingAllocatorState::allocations; }
};
}  // namespace Kiv::Testing

// libstdc++'s nothrow forms call these; nothing counted asks for over-aligned memory.
void* operator new(std::size_t size)
{
    return Kiv::Testing::CountingAllocatorState::Allocate(size);
}
void* operator new[](std::size_t size)
{
    return Kiv::Testing::CountingAllocatorState::Allocate(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
