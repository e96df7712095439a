// Counts the heap allocations of a whole process, every thread and library included (operator new ends
// in malloc; abi::__cxa_demangle and the C library call it directly). Loaded with LD_PRELOAD into the
// benchmark's processes; the benchmark finds the functions below with dlsym and, without them, reports no
// allocation figures. The memory itself comes from the C library's own allocator.

#define _GNU_SOURCE
#include <errno.h>
#include <stddef.h>
#include <stdint.h>

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* memory, size_t size);
extern void* __libc_memalign(size_t alignment, size_t size);
extern void __libc_free(void* memory);

#define EXPORT __attribute__((visibility("default")))

static uint64_t processAllocations;
// Initial-exec: a preloaded library's thread-local data is static, and reaching it must not allocate.
static __thread int threadPaused __attribute__((tls_model("initial-exec")));
static __thread uint64_t threadAllocations __attribute__((tls_model("initial-exec")));

static void Count(void)
{
    if (threadPaused == 0)
    {
        __atomic_fetch_add(&processAllocations, 1, __ATOMIC_RELAXED);
        ++threadAllocations;
    }
}

EXPORT void* malloc(size_t size)
{
    Count();
    return __libc_malloc(size);
}

EXPORT void* calloc(size_t count, size_t size)
{
    Count();
    return __libc_calloc(count, size);
}

EXPORT void* realloc(void* memory, size_t size)
{
    // Shrinking in place or freeing is no new allocation worth telling apart; every call that can move
    // the block counts.
    if (size != 0)
    {
        Count();
    }
    return __libc_realloc(memory, size);
}

EXPORT void free(void* memory)
{
    __libc_free(memory);
}

EXPORT void* memalign(size_t alignment, size_t size)
{
    Count();
    return __libc_memalign(alignment, size);
}

EXPORT void* aligned_alloc(size_t alignment, size_t size)
{
    Count();
    return __libc_memalign(alignment, size);
}

EXPORT int posix_memalign(void** result, size_t alignment, size_t size)
{
    if (alignment < sizeof(void*) || (alignment & (alignment - 1)) != 0)
    {
        return EINVAL;
    }
    Count();
    void* memory = __libc_memalign(alignment, size);
    if (memory == NULL)
    {
        return ENOMEM;
    }
    *result = memory;
    return 0;
}

/// Allocations of the whole process since it started.
EXPORT uint64_t KivBenchProcessAllocations(void)
{
    return __atomic_load_n(&processAllocations, __ATOMIC_RELAXED);
}

/// Allocations of the calling thread since it started.
EXPORT uint64_t KivBenchThreadAllocations(void)
{
    return threadAllocations;
}

/// While paused (calls nest), the calling thread's allocations are not counted.
EXPORT void KivBenchPauseCounting(int paused)
{
    threadPaused += paused ? 1 : -1;
}
