#pragma once

// The wire of the transport: frames on Unix stream sockets, and the endpoints they meet at.

#include <Kiv/BasicString.h>
#include <Kiv/System/Tul/TulSettings.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Kiv::System::Tul::Internal
{
using Clock = std::chrono::steady_clock;
constexpr Clock::time_point NoDeadline = Clock::time_point::max();

enum class FrameKind : std::uint8_t
{
    /// Body: provider name and service name (see WriteText). The response carries the handles in its
    /// header, and a confirmation (or failure) in its body.
    Resolve = 1,
    /// Body: the arguments, as the proxy wrote them.
    Invoke = 2,
    /// Body: the confirmation and the result, or the failure (TulExceptionRegistry).
    Response = 3
};

/// The 12 bytes in front of every frame, little-endian: the size of the whole frame (uint32), the kind,
/// a zero byte, then provider handle, service handle and method id (uint16 each). A response repeats the
/// three numbers of its request.
struct FrameHeader
{
    static constexpr std::size_t Size = 12;

    std::uint32_t frameSize = 0;
    FrameKind kind = FrameKind::Response;
    std::uint16_t providerHandle = 0;
    std::uint16_t serviceHandle = 0;
    std::uint16_t methodId = 0;

    std::size_t GetBodySize() const noexcept { return frameSize - Size; }
};

enum class IoResult
{
    Ok,
    /// The peer closed the connection, or it was shut down here.
    Closed,
    TimedOut,
    /// A header that is no frame header.
    Malformed,
    /// A system call failed; errno tells why.
    Failed
};

/// What went wrong, for a message: "the peer closed the connection" and so on. Call right after the
/// failed operation, since it reads errno for Failed.
String DescribeFailure(IoResult result, const char* operation);

/// All I/O waits with poll until `deadline` (NoDeadline: for ever) and never blocks otherwise, so that
/// shutdown(2) of the socket by another thread ends it at once. A frame goes out in one sendmsg when the
/// socket takes it; poll only when it would block.
IoResult SendFrame(int fd, FrameHeader header, const void* body, std::size_t bodySize,
                   Clock::time_point deadline);

/// The receiving side of one connection. A receive takes all that has arrived, up to the buffer, so that a
/// small frame costs one recv, and bytes of the next frame wait here for the next read. It polls only when
/// nothing has arrived (or, after a read that had to wait, first, since the next would most likely wait
/// too). One thread at a time; the descriptor is the caller's.
class FrameReader
{
public:
    /// Waits until a byte is here: Closed when the peer closed the connection.
    IoResult WaitForData(int fd, Clock::time_point deadline);
    IoResult ReceiveHeader(int fd, FrameHeader& header, Clock::time_point deadline);
    /// Receives a body of `size` bytes into `body`, which grows with the bytes that arrive (64 KiB at a
    /// time at most) rather than with the announced size, so that a peer can't make this process allocate
    /// what it never sends.
    IoResult ReceiveBody(int fd, std::vector<std::uint8_t>& body, std::size_t size,
                         Clock::time_point deadline);
    IoResult DiscardBytes(int fd, std::size_t size, Clock::time_point deadline);

private:
    /// Small frames, the usual ones, fit whole; a larger body goes straight into its vector.
    static constexpr std::size_t capacity = 16 * 1024;

    /// Receives at least one more byte into the buffer, after moving what is unread (less than a header)
    /// to its front.
    IoResult Fill(int fd, Clock::time_point deadline);
    /// Receives at least one and at most `size` bytes into `data`; `received` tells how many.
    IoResult ReceiveSome(int fd, std::uint8_t* data, std::size_t size, std::size_t& received,
                         Clock::time_point deadline);
    std::size_t Buffered() const noexcept { return end - begin; }

    std::unique_ptr<std::uint8_t[]> buffer;  // made on the first read
    std::size_t begin = 0;
    std::size_t end = 0;
    /// Whether a receive found nothing and had to wait, since the last frame that ended with bytes of the
    /// next one here already: then a poll goes first.
    bool waited = false;
};

/// The endpoint of `providerName` in the system of `settings` (see TulSettings::endpointDirectory).
String GetEndpointPath(const TulSettings& settings, const String& providerName);

/// Binds and listens at the endpoint of `providerName`, in the endpoint directory of `settings`, which is
/// created or checked first (see TulSettings::endpointDirectory). A stale endpoint is replaced only when
/// it is a socket of this process's user that no process accepts on. `path` gets the endpoint's path
/// (in the directory's real path). Returns the non-blocking listening socket. Raises ArgumentException
/// for a path too long for a socket, InvalidOperationException when a live process listens there,
/// UnauthorizedAccessException for a directory or file that isn't this user's to use, and
/// CommunicationException for other failures.
int Listen(const TulSettings& settings, const String& providerName, String& path);

/// Connects to the endpoint of `providerName`, trying again while it doesn't exist or refuses until
/// `settings.connectWait` has passed. Returns the non-blocking socket, or -1. Raises
/// CommunicationException, naming the endpoint and the uids, when the endpoint's directory or its serving
/// process belongs to a user that this process does not trust (see TulSettings::systemUid).
int Connect(const TulSettings& settings, const String& providerName);
}  // namespace Kiv::System::Tul::Internal
