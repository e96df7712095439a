#pragma once

#include <Kiv/System/Tul/ITulServiceProxy.h>

#include <cstdint>

namespace Kiv::System::Tul
{
class TulClient;
}

namespace Kiv::System::Nm::Services
{
/// The client end of a service interface `T`: holds the two handles that the service manager assigned
/// and the shared connection. Concrete proxies write each operation as one `Call`.
template <class T>
class TulServiceProxyBase : public Tul::ITulServiceProxy, public T
{
public:
    ~TulServiceProxyBase() override = default;

    unsigned short GetServiceHandle() const override { return serviceHandle; }
    unsigned short GetProviderHandle() const override { return providerHandle; }

protected:
    TulServiceProxyBase(unsigned short providerHandle, unsigned short serviceHandle, Tul::TulClient& client)
        : providerHandle(providerHandle), serviceHandle(serviceHandle), client(client)
    {
    }

    /// One blocking invocation of `methodId`: the arguments go out in the given order in their wire
    /// form, and the result comes back in its own. The transaction is ended exactly once, also when the
    /// call fails, and the failure goes on to the caller.
    template <class TResult, class... TArguments>
    TResult Call(std::uint16_t methodId, const TArguments&... arguments);

    /// Renews the service handle under `serviceName` through the connection.
    void RefreshServiceHandleOf(const char* serviceName);

    unsigned short providerHandle;
    unsigned short serviceHandle;
    Tul::TulClient& client;

private:
    template <class TResult, class... TArguments>
    TResult Exchange(std::uint16_t methodId, const TArguments&... arguments);
};
}  // namespace Kiv::System::Nm::Services

#include <Nm/Services/TulServiceProxyBase.inl>
