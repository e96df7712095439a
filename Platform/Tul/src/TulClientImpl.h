#pragma once

#include "TulSocket.h"

#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/TulClient.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace Kiv::System::Tul
{
/// The state of one connection. The socket and the buffers belong to the holder of the transaction; `fd`
/// changes only under the transaction and stateMutex, so that Break may shut it down from any thread.
class TulClient::Impl
{
public:
    Impl(String providerName, int fd, const TulSettings& settings);
    ~Impl();

    /// Takes the transaction within the call time limit; raises if it is broken.
    void Lock();
    /// Raises unless this thread holds the transaction.
    void ExpectOwner(const char* operation) const;
    void Unlock();

    /// Marks the connection broken for `reason` and shuts the socket down, which ends a call waiting on
    /// it at once. The first reason stays. Any thread.
    void Break(const String& reason) noexcept;
    [[noreturn]] void ThrowBroken() const;
    /// Break, and close the socket now unless a call holds it; that call closes it at its end.
    void Close(const String& reason) noexcept;

    /// Sends the writer's message as a frame; under the transaction.
    void Send(Internal::FrameKind kind, std::uint16_t providerHandle, std::uint16_t serviceHandle,
              std::uint16_t methodId);
    /// Receives the response to the frame sent last into `body`, within the time limit counted from the
    /// send; returns its header.
    Internal::FrameHeader Receive();

    /// The handles of `serviceName`; raises the server's refusal or CommunicationException.
    std::pair<std::uint16_t, std::uint16_t> Resolve(const String& serviceName);

    const String providerName;
    const std::chrono::milliseconds callTimeLimit;
    const std::size_t maxFrameSize;
    RemotingWriter writer;
    std::vector<std::uint8_t> body;
    std::atomic<bool> broken{false};

private:
    void CloseSocket() noexcept;

    /// The transaction: `busy` under callMutex, `released` when it ends. (Not a timed mutex: the thread
    /// sanitizer doesn't see its timed lock.)
    std::mutex callMutex;
    std::condition_variable released;
    bool busy = false;
    std::atomic<std::thread::id> owner{};
    Internal::Clock::time_point deadline{};
    mutable std::mutex stateMutex;
    int fd;
    String brokenReason;
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
