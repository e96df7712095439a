#include <Kiv/Exceptions.h>
#include <Kiv/Threading/Thread.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sched.h>
#include <time.h>

namespace Kiv::System::Commons::Threading
{
thread_local Thread* Thread::pCurrentThread = nullptr;

Thread::Thread(ThreadDelegate delegate, void* argument, const ThreadSettings& settings)
    : delegate(std::move(delegate)), argument(argument), settings(settings)
{
}

Thread::~Thread()
{
    if (joinable && !pthread_equal(handle, pthread_self()))
    {
        pthread_join(handle, nullptr);
    }
    else if (joinable)
    {
        pthread_detach(handle);
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

    const int result = pthread_create(&handle, &attributes, &Thread::Run, this);
    if (result != 0)
    {
        throw Exception("Could not start thread '{0}': {1}", settings.name, std::strerror(result));
    }
    started = true;
    joinable = true;
}

void Thread::Join()
{
    if (!joinable)
    {
        throw InvalidOperationException("Thread '{0}' is not joinable.", settings.name);
    }
    if (pthread_equal(handle, pthread_self()))
    {
        throw InvalidOperationException("Thread '{0}' cannot join itself.", settings.name);
    }
    pthread_join(handle, nullptr);
    joinable = false;
}

void Thread::Sleep(unsigned int milliseconds)
{
    timespec request{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&request, &request) == -1 && errno == EINTR)
    {
    }
}

String Thread::GetCurrentOsThreadName()
{
    char name[MaxOsNameLength + 1] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return String(name);
}

void* Thread::Run(void* self)
{
    auto* thread = static_cast<Thread*>(self);
    pCurrentThread = thread;
    const String osName = thread->settings.name.substr(0, MaxOsNameLength);
    pthread_setname_np(pthread_self(), osName.c_str());
    try
    {
        thread->delegate(thread->argument);
    }
    catch (const Exception& e)
    {
        std::fprintf(stderr, "Unhandled exception in thread '%s': %s\n", thread->settings.name.c_str(),
                     e.ToString().c_str());
        std::terminate();
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "Unhandled exception in thread '%s': %s\n", thread->settings.name.c_str(), e.what());
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
