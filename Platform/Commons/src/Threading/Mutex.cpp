#include <Kiv/Exceptions.h>
#include <Kiv/Threading/Mutex.h>

#include <cstring>

namespace Kiv::System::Commons::Threading
{
Mutex::Mutex(bool recursive) : recursive(recursive)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    // The non-recursive kind checks errors, so that a second lock by its owner fails instead of hanging.
    pthread_mutexattr_settype(&attributes, recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&handle, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

Mutex::~Mutex()
{
    pthread_mutex_destroy(&handle);
}

void Mutex::Lock()
{
    const int result = pthread_mutex_lock(&handle);
    if (result != 0)
    {
        throw InvalidOperationException("Mutex lock failed: {0}", std::strerror(result));
    }
}

bool Mutex::TryLock()
{
    return pthread_mutex_trylock(&handle) == 0;
}

void Mutex::Unlock()
{
    const int result = pthread_mutex_unlock(&handle);
    if (result != 0)
    {
        throw InvalidOperationException("Mutex unlock failed: {0}", std::strerror(result));
    }
}
}  // namespace Kiv::System::Commons::Threading
