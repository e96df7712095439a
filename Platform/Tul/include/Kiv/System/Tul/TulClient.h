#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

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
    class Transaction;

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

    explicit TulClient(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> impl;
};

/// One call's hold on a connection, from taking it to giving it back: the only way to the connection's
/// socket, and the owner of its buffers meanwhile. Only the library makes one (BeginTransaction hands it
/// to the call's TulClientContext). Move-only; one that was moved from raises InvalidOperationException
/// when used.
class KIV_API TulClient::Transaction
{
public:
    /// The three numbers of a response.
    struct Numbers
    {
        std::uint16_t providerHandle = 0;
        std::uint16_t serviceHandle = 0;
        std::uint16_t methodId = 0;
    };

    Transaction(Transaction&& other) noexcept;
    Transaction& operator=(Transaction&& other) noexcept;
    /// Gives the connection back; a broken one is closed now.
    ~Transaction();

    /// The request buffer, emptied; raises CommunicationException when the connection is broken.
    RemotingWriter& StartRequest();
    RemotingWriter& GetWriter();
    /// Sends the request buffer as the invocation of method `methodId`. Raises CommunicationException
    /// when it is larger than the maximum frame size (nothing is sent, the connection stays usable) or
    /// when the connection fails, which breaks it.
    void SendRequest(std::uint16_t providerHandle, std::uint16_t serviceHandle, std::uint16_t methodId);
    /// Receives the response to the request sent last into the body, within the call time limit counted
    /// from the send. Raises CommunicationException when the connection fails, which breaks it, or when
    /// the response is larger than the maximum frame size (it is read past, so the connection stays in
    /// step).
    Numbers ReceiveResponse();
    const std::vector<std::uint8_t>& GetBody() const;
    /// The handles under which the provider serves `serviceName`; raises the provider's refusal or
    /// CommunicationException.
    std::pair<std::uint16_t, std::uint16_t> Resolve(const String& serviceName);

    /// Marks the connection broken for `reason` (the first reason stays) and shuts its socket down.
    void Break(const String& reason);
    [[noreturn]] void ThrowBroken() const;
    const String& GetProviderName() const;

private:
    friend class TulClient::Impl;

    Transaction(Impl& impl, RemotingWriter writer, std::vector<std::uint8_t> body) noexcept;
    Impl& GetConnection() const;
    void GiveBack() noexcept;

    Impl* impl;
    RemotingWriter writer;
    std::vector<std::uint8_t> body;
};
}  // namespace Kiv::System::Tul
