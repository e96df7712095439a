// The preloaded allocation counter counts every way of allocating, on every thread, and nothing while a
// thread pauses it. Run with the counter in LD_PRELOAD (CTest does); without it, the benchmark would show
// no allocation figures, so this fails too.

#include "ProcessCounters.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{
int failures = 0;

// Keeps the optimiser from dropping an allocation whose result is unused.
void* volatile sink;

void Expect(const char* what, std::uint64_t expectedProcess, std::uint64_t expectedThread,
            const std::function<void()>& allocate)
{
    const auto& counter = KivBench::AllocationCountFunctions::Get();
    const std::uint64_t process = counter.process();
    const std::uint64_t thread = counter.thread();
    allocate();
    const std::uint64_t processCounted = counter.process() - process;
    const std::uint64_t threadCounted = counter.thread() - thread;
    if (processCounted != expectedProcess || threadCounted != expectedThread)
    {
        std::fprintf(
            stderr, "%s: counted %llu in the process and %llu on the thread, expected %llu and %llu\n", what,
            static_cast<unsigned long long>(processCounted), static_cast<unsigned long long>(threadCounted),
            static_cast<unsigned long long>(expectedProcess),
            static_cast<unsigned long long>(expectedThread));
        ++failures;
    }
}
}  // namespace

int main()
{
    if (!KivBench::AllocationCountFunctions::Get().Loaded())
    {
        std::fprintf(stderr, "the allocation counter is not preloaded\n");
        return 1;
    }
    const std::vector<std::pair<const char*, std::function<void()>>> singleAllocations = {
        {"malloc", [] { std::free(sink = std::malloc(24)); }},
        {"calloc", [] { std::free(sink = std::calloc(3, 8)); }},
        {"realloc", [] { std::free(sink = std::realloc(nullptr, 24)); }},
        {"aligned_alloc", [] { std::free(sink = aligned_alloc(64, 128)); }},
        {"posix_memalign",
         []
         {
             void* memory = nullptr;
             (void)posix_memalign(&memory, 64, 128);
             std::free(sink = memory);
         }},
        {"new", [] { delete static_cast<int*>(sink = new int(1)); }},
        {"string", [] { sink = std::make_unique<std::string>(100, 'x').get(); }},
    };
    for (const auto& [what, allocate] : singleAllocations)
    {
        Expect(what, what == std::string("string") ? 2 : 1, what == std::string("string") ? 2 : 1, allocate);
    }
    Expect("paused, nested", 1, 1,
           []
           {
               {
                   const KivBench::UncountedAllocations outer;
                   {
                       const KivBench::UncountedAllocations inner;
                       std::free(sink = std::malloc(24));
                   }
                   std::free(sink = std::malloc(24));
               }
               std::free(sink = std::malloc(24));
           });
    std::thread([] { Expect("malloc on another thread", 1, 1, [] { std::free(sink = std::malloc(24)); }); })
        .join();
    return failures == 0 ? 0 : 1;
}
