#pragma once

#include <Kiv/Export.h>

#include <sys/types.h>

#include <vector>

namespace Kiv::System::Tul
{
/// Who makes the call that the current thread serves: the effective user and group and the process.
struct KIV_API TulCallerIdentity
{
    uid_t uid = 0;
    gid_t gid = 0;
    pid_t pid = 0;
    /// The supplementary groups, as the kernel reported them for the connection (SO_PEERGROUPS).
    std::vector<gid_t> groups;

    /// Whether `group` is the primary or a supplementary group.
    bool IsInGroup(gid_t group) const noexcept;

    /// This process, with its effective user and group.
    static TulCallerIdentity GetProcessIdentity() noexcept;
    /// The caller of the call that this thread serves: the one of the innermost Scope, else this
    /// process, which is the caller of every in-process call.
    static TulCallerIdentity GetCurrent() noexcept;
    /// GetCurrent().pid, without copying the groups.
    static pid_t GetCurrentPid() noexcept;

    /// Sets the current identity for one scope.
    class Scope;

    bool operator==(const TulCallerIdentity& o) const noexcept
    {
        return uid == o.uid && gid == o.gid && pid == o.pid;
    }
    bool operator!=(const TulCallerIdentity& o) const noexcept { return !(*this == o); }
};

/// Makes `caller` the current identity of this thread for one scope; the server side of a
/// transport sets it around each call it serves. Scopes nest.
class KIV_API TulCallerIdentity::Scope
{
public:
    explicit Scope(const TulCallerIdentity& caller) noexcept;
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope();

private:
    const TulCallerIdentity* previous;
    TulCallerIdentity caller;
};
}  // namespace Kiv::System::Tul
