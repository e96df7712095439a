#pragma once

#include <Kiv/Export.h>
#include <Kiv/Threading/ThreadSettings.h>

#include <boost/function.hpp>

#include <pthread.h>
#include <atomic>

namespace Kiv::System::Commons::Threading
{
/// The body of a thread: a callable that gets the argument given at construction.
using ThreadDelegate = boost::function<void(void*)>;

/// A delegate to `method` on `object`.
template <class T>
ThreadDelegate MakeDelegate(T* object, void (T::*method)(void*))
{
    return [object, method](void* argument) { (object->*method)(argument); };
}

/// A platform thread. It is made stopped; Start runs the delegate on a new thread. An exception that
/// escapes the delegate is reported on stderr with the thread's name and ends the process, as a bug
/// that must not pass unseen.
class KIV_API Thread
{
public:
    /// The longest name the OS keeps; longer names are cut for the OS only.
    static constexpr std::size_t MaxOsNameLength = 15;

    /// Raises ArgumentException for an empty delegate.
    Thread(ThreadDelegate delegate, void* argument, const ThreadSettings& settings);
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    /// A thread still joinable here is joined, so that no thread outlives its object.
    ~Thread();

    /// Starts the body and returns at once. Raises InvalidOperationException when started before, and
    /// Exception when the OS refuses the thread.
    void Start();
    /// True from Start until Join, also after the body has returned, and also inside the body.
    bool IsJoinable() const noexcept { return joinable.load(std::memory_order_acquire); }
    /// Waits for the end of the body. Raises InvalidOperationException when not joinable or when called
    /// from the thread itself.
    void Join();

    /// The full name given in the settings.
    const String& GetName() const noexcept { return settings.name; }
    const ThreadSettings& GetSettings() const noexcept { return settings; }

    /// Suspends the calling thread for `milliseconds`.
    static void Sleep(unsigned int milliseconds);

    /// The Thread object running the calling thread, or null on threads not made by this class.
    static thread_local Thread* pCurrentThread;

    /// The OS name of the calling thread (at most 15 bytes).
    static String GetCurrentOsThreadName();

    /// The name as the OS keeps it: `name` cut to MaxOsNameLength bytes, not inside a UTF-8 character.
    static String ToOsThreadName(const String& name);

private:
    static void* Run(void* self);

    ThreadDelegate delegate;
    void* argument;
    ThreadSettings settings;
    pthread_t handle{};
    bool started = false;
    std::atomic<bool> joinable{false};
};
}  // namespace Kiv::System::Commons::Threading
