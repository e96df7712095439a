#include <Kiv/System/Tul/TulCallerIdentity.h>

#include <unistd.h>

namespace Kiv::System::Tul
{
namespace
{
// The identity of the innermost Scope on this thread; null outside any.
thread_local const TulCallerIdentity* currentCaller = nullptr;
}  // namespace

TulCallerIdentity TulCallerIdentity::GetProcessIdentity() noexcept
{
    TulCallerIdentity identity;
    identity.uid = geteuid();
    identity.gid = getegid();
    identity.pid = getpid();
    return identity;
}

TulCallerIdentity TulCallerIdentity::GetCurrent() noexcept
{
    return currentCaller != nullptr ? *currentCaller : GetProcessIdentity();
}

TulCallerIdentity::Scope::Scope(const TulCallerIdentity& caller) noexcept
    : previous(currentCaller), caller(caller)
{
    currentCaller = &this->caller;
}

TulCallerIdentity::Scope::~Scope()
{
    currentCaller = previous;
}
}  // namespace Kiv::System::Tul
