#pragma once

#include "TulSocket.h"

#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/TulClient.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace Kiv::System::Tul
{
/// The state of one connection. Socket and buffers belong to the holder of its one Transaction; `fd`
/// changes only under the transaction and stateMutex, so that Break may shut it down from any thread.
class TulClient::Impl
{
public:
    Impl(String providerName, int fd, const TulSettings& settings);
    ~Impl();

    /// The connection for one call, taken within the call time limit; raises if it is broken, or held by
    /// this thread already.
    Transaction Take();
    /// Keeps the transaction of BeginTransaction for this thread's TulClientContext and EndTransaction.
    void Park(Transaction transaction) noexcept;
    /// The transaction that this thread parked; raises InvalidOperationException, naming `operation`,
    /// when there is none.
    Transaction Unpark(const char* operation);

    /// Marks the connection broken for `reason` and shuts the socket down, which ends a call waiting on
    /// it at once. The first reason stays. Any thread.
    void Break(const String& reason) noexcept;
    [[noreturn]] void ThrowBroken() const;
    /// Break, and close the socket now unless a call holds it; that call closes it at its end.
    void Close(const String& reason) noexcept;
    bool IsBroken() const noexcept { return broken; }

    const String providerName;

private:
    friend class Transaction;

    /// The end of a transaction: its buffers are kept for the next one unless the connection is broken.
    void GiveBack(RemotingWriter writer, std::vector<std::uint8_t> body) noexcept;
    void Send(Internal::FrameKind kind, std::uint16_t providerHandle, std::uint16_t serviceHandle,
              std::uint16_t methodId, const RemotingWriter& writer);
    Internal::FrameHeader Receive(std::vector<std::uint8_t>& body);
    void CloseSocket() noexcept;

    const std::chrono::milliseconds callTimeLimit;
    const std::size_t maxFrameSize;
    std::atomic<bool> broken{false};
    /// Whether a transaction holds the connection, under callMutex; `released` when it ends. (Not a timed
    /// mutex: the thread sanitizer doesn't see its timed lock.)
    std::mutex callMutex;
    std::condition_variable released;
    bool busy = false;
    std::atomic<std::thread::id> owner{};
    /// The buffers between two transactions: a transaction takes them and gives them back.
    RemotingWriter spareWriter;
    std::vector<std::uint8_t> spareBody;
    /// The connection's received bytes not yet taken; the holder's.
    Internal::FrameReader reader;
    /// Of the holder's call.
    Internal::Clock::time_point deadline{};
    mutable std::mutex stateMutex;
    int fd;
    String brokenReason;
    /// Last, so that it goes first: a transaction left parked gives the connection back to the rest.
    std::optional<Transaction> parked;
};

/// The library's way to make clients and reach their state.
struct Internal::TulClientAccess
{
    static std::unique_ptr<TulClient> Make(std::unique_ptr<TulClient::Impl> impl)
    {
        return std::unique_ptr<TulClient>(new TulClient(std::move(impl)));
    }
    static TulClient::Impl& Get(TulClient& client) noexcept { return *client.impl; }
};
}  // namespace Kiv::System::Tul
