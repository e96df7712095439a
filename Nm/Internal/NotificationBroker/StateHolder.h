#pragma once

#include <Kiv/Threading/Mutex.h>

#include <memory>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// Owns the current state. The lock guards the pointer, not the calls made on the state: a caller reads
/// the pointer and calls after the lock is gone, and a switch destroys the old state at once. Switches
/// are rare and belong to the end of the system's set-up.
template <class T>
class StateHolder
{
public:
    explicit StateHolder(std::unique_ptr<T> state) : state(std::move(state)), mutex(true) {}
    StateHolder(const StateHolder&) = delete;
    StateHolder& operator=(const StateHolder&) = delete;
    ~StateHolder()
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        state.reset();
    }

    T* Get() const
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        return state.get();
    }

    void Set(std::unique_ptr<T> newState)
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        state = std::move(newState);
    }

private:
    std::unique_ptr<T> state;
    mutable Commons::Threading::Mutex mutex;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
