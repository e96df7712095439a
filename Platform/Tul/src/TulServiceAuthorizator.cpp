#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>
#include <Kiv/System/Tul/TulDefaultAuthorizator.h>
#include <Kiv/System/Tul/TulServiceAuthorizator.h>

#include "Authorize.h"

namespace Kiv::System::Tul
{
bool TulDefaultAuthorizator::IsAuthorized(const char*, const char*, const char*,
                                          const TulCallerIdentity& caller)
{
    return caller.uid == serverUid || caller.uid == 0;
}

TulServiceAuthorizator::TulServiceAuthorizator(const char* providerName, const char* serviceName,
                                               ITulAuthorizator* authorizator)
    : providerName(providerName != nullptr ? providerName : ""),
      serviceName(serviceName != nullptr ? serviceName : ""),
      authorizator(authorizator)
{
}

void TulServiceAuthorizator::AuthorizeServiceInvocation(const char* methodName) const
{
    Internal::Authorize(authorizator, providerName.c_str(), serviceName.c_str(),
                        methodName != nullptr ? methodName : "", TulCallerIdentity::GetCurrent());
}

void Internal::Authorize(ITulAuthorizator* authorizator, const char* providerName, const char* serviceName,
                         const char* methodName, const TulCallerIdentity& caller)
{
    // Never destroyed: a server thread may still check a call while the process exits.
    static auto* const defaultAuthorizator = new TulDefaultAuthorizator;
    ITulAuthorizator& policy = authorizator != nullptr ? *authorizator : *defaultAuthorizator;
    if (!policy.IsAuthorized(providerName, serviceName, methodName, caller))
    {
        throw UnauthorizedAccessException(
            "Access denied to '{0}' of service '{1}' of provider '{2}' for uid {3} gid {4} pid {5}",
            methodName, serviceName, providerName, caller.uid, caller.gid, caller.pid);
    }
}
}  // namespace Kiv::System::Tul
