#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
class ITulAuthorizator;

/// The check that the security stub of a guarded service makes before each operation, for the caller of
/// the current call (TulCallerIdentity::GetCurrent).
class KIV_API TulServiceAuthorizator
{
public:
    /// `authorizator` is not owned; null means the process-wide TulDefaultAuthorizator.
    TulServiceAuthorizator(const char* providerName, const char* serviceName, ITulAuthorizator* authorizator);

    /// Raises UnauthorizedAccessException "Access denied to '{method}' of service '{service}' of provider
    /// '{provider}' for uid {uid} gid {gid} pid {pid}" unless the authorizator grants the operation.
    void AuthorizeServiceInvocation(const char* methodName) const;

private:
    String providerName;
    String serviceName;
    ITulAuthorizator* authorizator;
};
}  // namespace Kiv::System::Tul
