#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <memory>

namespace Kiv::System::Tul
{
class ITulServiceProxy;
namespace Internal
{
struct TulClientAccess;
}

/// The connection of this process to one provider, shared by all proxies on it and made by
/// ServiceManager::GetService. Calls on it are serialised: each proxy call brackets its TulClientContext
/// with BeginTransaction and EndTransaction. A connection that failed stays broken: every call waiting
/// for it and every later one raises CommunicationException, and nothing reconnects behind the caller's
/// back; a new GetService makes a new connection. The object lives as long as its transport keeps it or a
/// proxy made on it lives, so that a proxy never refers to a destroyed client.
class KIV_API TulClient
{
public:
    class Impl;

    TulClient(const TulClient&) = delete;
    TulClient& operator=(const TulClient&) = delete;
    ~TulClient();

    /// Takes the connection for one call of `proxy` by this thread. Raises CommunicationException when
    /// the connection is broken, or still taken by another call after the call time limit.
    void BeginTransaction(ITulServiceProxy& proxy);
    /// Gives the connection back, once for each BeginTransaction, also after a failed call. Raises
    /// InvalidOperationException when this thread holds no transaction.
    void EndTransaction(ITulServiceProxy& proxy);

    /// The handle under which the provider serves `serviceName` now. Takes the connection itself, so it
    /// is not to be called inside a transaction. Raises CommunicationException on a lost connection and
    /// InvalidOperationException when the provider doesn't publish the service (any more).
    unsigned short GetServiceHandle(unsigned short providerHandle, const char* serviceName);

    const String& GetProviderName() const noexcept;
    bool IsBroken() const noexcept;

private:
    friend struct Internal::TulClientAccess;
    friend class TulClientContext;

    explicit TulClient(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> impl;
};
}  // namespace Kiv::System::Tul
