#include <Kiv/System/Tul/TulCallerIdentity.h>

#include <algorithm>

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
    const int count = getgroups(0, nullptr);
    if (count > 0)
    {
        identity.groups.resize(static_cast<std::size_t>(count));
        identity.groups.resize(
            static_cast<std::size_t>(std::max(getgroups(count, identity.groups.data()), 0)));
    }
    return identity;
}

bool TulCallerIdentity::IsInGroup(gid_t group) const noexcept
{
    return gid == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

TulCallerIdentity TulCallerIdentity::GetCurrent() noexcept
{
    return currentCaller != nullptr ? *currentCaller : GetProcessIdentity();
}

pid_t TulCallerIdentity::GetCurrentPid() noexcept
{
    return currentCaller != nullptr ? currentCaller->pid : getpid();
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
