#include <Kiv/Exceptions.h>
#include <Kiv/Threading/Thread.h>

#include <cxxabi.h>
#include <sched.h>
#include <time.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

namespace Kiv::System::Commons::Threading
{
thread_local Thread* Thread::pCurrentThread = nullptr;

Thread::Thread(ThreadDelegate delegate, void* argument, const ThreadSettings& settings)
    : delegate(std::move(delegate)), argument(argument), settings(settings)
{
    if (this->delegate.empty())
    {
        throw ArgumentException::Create("delegate", "empty",
                                        String::Format("Thread '{0}' needs a body", settings.name));
    }
}

Thread::~Thread()
{
    if (!joinable.load(std::memory_order_acquire))
    {
        return;
    }
    // The body may destroy its own Thread object: it cannot join itself, so it lets go of the thread.
    if (pCurrentThread == this)
    {
        pthread_detach(pthread_self());
    }
    else
    {
        pthread_join(handle, nullptr);
    }
}

void Thread::Start()
{
    if (started)
    {
        throw InvalidOperationException("Thread '{0}' was started before.", settings.name);
    }
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    struct AttributeGuard
    {
        pthread_attr_t* a;
        ~AttributeGuard() { pthread_attr_destroy(a); }
    } guard{&attributes};

    if (settings.stackSize != 0)
    {
        pthread_attr_setstacksize(&attributes, settings.stackSize);
    }
    if (settings.priority != 0)
    {
        sched_param parameter{};
        parameter.sched_priority = settings.priority;
        pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
        pthread_attr_setschedpolicy(&attributes, SCHED_FIFO);
        pthread_attr_setschedparam(&attributes, &parameter);
    }
    if (settings.affinityMask != 0)
    {
        cpu_set_t cpus;
        CPU_ZERO(&cpus);
        for (unsigned core = 0; core < 64; ++core)
        {
            if ((settings.affinityMask >> core) & 1U)
            {
                CPU_SET(core, &cpus);
            }
        }
        pthread_attr_setaffinity_np(&attributes, sizeof(cpus), &cpus);
    }

    // Marked before the thread exists, so that the body sees itself joinable (and without a data race).
    started = true;
    joinable.store(true, std::memory_order_release);
    const int result = pthread_create(&handle, &attributes, &Thread::Run, this);
    if (result != 0)
    {
        started = false;
        joinable.store(false, std::memory_order_release);
        throw Exception("Could not start thread '{0}': {1}", settings.name, std::strerror(result));
    }
}

void Thread::Join()
{
    if (!joinable.load(std::memory_order_acquire))
    {
        throw InvalidOperationException("Thread '{0}' is not joinable.", settings.name);
    }
    // Not by comparing `handle`: the creating thread writes it while the body may already run.
    if (pCurrentThread == this)
    {
        throw InvalidOperationException("Thread '{0}' cannot join itself.", settings.name);
    }
    const int result = pthread_join(handle, nullptr);
    if (result != 0)
    {
        throw InvalidOperationException("Joining thread '{0}' failed: {1}", settings.name,
                                        std::strerror(result));
    }
    joinable.store(false, std::memory_order_release);
}

void Thread::Sleep(unsigned int milliseconds)
{
    timespec request{static_cast<time_t>(milliseconds / 1000),
                     static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&request, &request) == -1 && errno == EINTR)
    {
    }
}

String Thread::ToOsThreadName(const String& name)
{
    if (name.size() <= MaxOsNameLength)
    {
        return name;
    }
    std::size_t length = MaxOsNameLength;
    // Back off from UTF-8 continuation bytes (10xxxxxx), so that no character is cut in two.
    while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0U) == 0x80U)
    {
        --length;
    }
    return name.substr(0, length);
}

String Thread::GetCurrentOsThreadName()
{
    char name[MaxOsNameLength + 1] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return String(name);
}

// UBSan's null check flags the catch of abi::__forced_unwind, which glibc's unwinding raises without a
// C++ object; the binding is never used.
__attribute__((no_sanitize("null"))) void* Thread::Run(void* self)
{
    auto* thread = static_cast<Thread*>(self);
    pCurrentThread = thread;
    const String osName = ToOsThreadName(thread->settings.name);
    pthread_setname_np(pthread_self(), osName.c_str());
    try
    {
        thread->delegate(thread->argument);
    }
    catch (abi::__forced_unwind&)
    {
        // pthread_exit or cancellation in the body: the thread ends, the process goes on.
        pCurrentThread = nullptr;
        throw;
    }
    catch (const Exception& e)
    {
        std::fprintf(stderr, "Unhandled exception in thread '%s': %s\n", thread->settings.name.c_str(),
                     e.ToString().c_str());
        std::terminate();
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "Unhandled exception in thread '%s': %s\n", thread->settings.name.c_str(),
                     e.what());
        std::terminate();
    }
    catch (...)
    {
        std::fprintf(stderr, "Unhandled unknown exception in thread '%s'\n", thread->settings.name.c_str());
        std::terminate();
    }
    pCurrentThread = nullptr;
    return nullptr;
}
}  // namespace Kiv::System::Commons::Threading
