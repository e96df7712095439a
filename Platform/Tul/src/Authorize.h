#pragma once

namespace Kiv::System::Tul
{
class ITulAuthorizator;
struct TulCallerIdentity;
}  // namespace Kiv::System::Tul

namespace Kiv::System::Tul::Internal
{
/// Raises UnauthorizedAccessException "Access denied to '{method}' of service '{service}' of provider
/// '{provider}' for uid {uid} gid {gid} pid {pid}" unless `authorizator` (null: TulDefaultAuthorizator)
/// grants `caller` the operation.
void Authorize(ITulAuthorizator* authorizator, const char* providerName, const char* serviceName,
               const char* methodName, const TulCallerIdentity& caller);
}  // namespace Kiv::System::Tul::Internal
