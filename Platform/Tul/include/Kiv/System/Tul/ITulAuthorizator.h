#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
struct TulCallerIdentity;

/// A policy that decides who may call which operation of a guarded service. Installed by
/// ServiceManager::SetAuthorizator and handed to the factories of guarded services.
class KIV_API ITulAuthorizator
{
public:
    virtual ~ITulAuthorizator();

    /// Whether `caller` may invoke `methodName` of the service `serviceName` of `providerName`.
    virtual bool IsAuthorized(const char* providerName, const char* serviceName, const char* methodName,
                              const TulCallerIdentity& caller) = 0;

protected:
    ITulAuthorizator() = default;
    ITulAuthorizator(const ITulAuthorizator&) = default;
    ITulAuthorizator& operator=(const ITulAuthorizator&) = default;
};
}  // namespace Kiv::System::Tul
