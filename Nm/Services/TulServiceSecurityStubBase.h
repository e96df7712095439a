#pragma once

#include <Kiv/System/Tul/TulServiceAuthorizator.h>

namespace Kiv::System::Tul
{
class ITulAuthorizator;
}

namespace Kiv::System::Nm::Services
{
/// Puts a rights check in front of the operations of `TImpl`: each overriding operation of the derived
/// security stub asks `authorizator` first and then calls the Impl's.
template <class TImpl>
class TulServiceSecurityStubBase : public TImpl
{
protected:
    TulServiceSecurityStubBase(const char* providerName, const char* serviceName,
                               Tul::ITulAuthorizator* authorizator)
        : authorizator(providerName, serviceName, authorizator)
    {
    }

    Tul::TulServiceAuthorizator authorizator;
};
}  // namespace Kiv::System::Nm::Services
