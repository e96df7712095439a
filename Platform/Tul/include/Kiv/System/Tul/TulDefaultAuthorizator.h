#pragma once

#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulAuthorizator.h>

#include <sys/types.h>
#include <unistd.h>

namespace Kiv::System::Tul
{
/// The policy of a host that configures none: callers running as the serving process's user, and root,
/// may call everything; everybody else nothing.
class KIV_API TulDefaultAuthorizator final : public ITulAuthorizator
{
public:
    explicit TulDefaultAuthorizator(uid_t serverUid = geteuid()) noexcept : serverUid(serverUid) {}

    bool IsAuthorized(const char* providerName, const char* serviceName, const char* methodName,
                      const TulCallerIdentity& caller) override;

private:
    uid_t serverUid;
};
}  // namespace Kiv::System::Tul
