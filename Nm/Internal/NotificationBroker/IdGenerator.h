#pragma once

#include <Kiv/Threading/Mutex.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// Hands out ids from 1 upward and never reuses one. Once the counter wraps it stays at the invalid id
/// 0 for good: running out of ids is reported by the id itself, not by an exception.
template <class TId>
class IdGenerator
{
public:
    using RawType = typename TId::type;

    IdGenerator() : mutex(true) {}

    TId Next()
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        const RawType result = next;
        if (next != 0)
        {
            next = static_cast<RawType>(next + 1);
        }
        return TId(result);
    }

private:
    RawType next = 1;
    Commons::Threading::Mutex mutex;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
