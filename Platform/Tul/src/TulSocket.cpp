#include "TulSocket.h"

#include <Kiv/Exceptions.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Kiv::System::Tul::Internal
{
namespace
{
constexpr int sendFlags = MSG_NOSIGNAL | MSG_DONTWAIT;

int PollTimeout(Clock::time_point deadline)
{
    if (deadline == NoDeadline)
    {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

IoResult WaitFor(int fd, short events, Clock::time_point deadline)
{
    for (;;)
    {
        pollfd entry{fd, events, 0};
        const int ready = poll(&entry, 1, PollTimeout(deadline));
        if (ready > 0)
        {
            return IoResult::Ok;  // also on hang-up or error, which the next transfer reports
        }
        if (ready == 0)
        {
            return IoResult::TimedOut;
        }
        if (errno != EINTR)
        {
            return IoResult::Failed;
        }
    }
}

IoResult TransferFailure()
{
    return errno == ECONNRESET || errno == EPIPE ? IoResult::Closed : IoResult::Failed;
}

void Put16(std::uint8_t* out, std::uint16_t value)
{
    std::memcpy(out, &value, sizeof value);
}

std::uint16_t Get16(const std::uint8_t* in)
{
    std::uint16_t value = 0;
    std::memcpy(&value, in, sizeof value);
    return value;
}

/// Letters, digits, '-' and '_' stay, and '.' when `keepDot`; the rest becomes %XX, so that two names
/// never share an endpoint and none leaves the directory.
String EncodeName(const String& name, bool keepDot)
{
    String encoded;
    for (const unsigned char c : name)
    {
        if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
            c == '_' || (keepDot && c == '.'))
        {
            encoded += static_cast<char>(c);
        }
        else
        {
            encoded += fmt::format("%{:02X}", c);
        }
    }
    return encoded;
}

bool MakeAddress(const String& path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
    {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

int NewSocket()
{
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

/// Whether a process accepts connections at `address`. A full backlog also means a live one.
bool IsLive(const sockaddr_un& address)
{
    const int fd = NewSocket();
    if (fd < 0)
    {
        return true;  // can't tell: better refuse than take a live endpoint away
    }
    const bool live = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
                      (errno != ECONNREFUSED && errno != ENOENT);
    close(fd);
    return live;
}

/// Creates the missing directories of `directory`; the last with mode 1777 when made here, since
/// processes of other users must make their endpoints there too.
void EnsureDirectory(const String& directory)
{
    for (std::size_t slash = directory.find('/', 1);; slash = directory.find('/', slash + 1))
    {
        const String prefix = directory.substr(0, slash);
        const bool last = slash == String::npos;
        if (mkdir(prefix.c_str(), last ? 0777 : 0755) == 0 && last)
        {
            chmod(prefix.c_str(), 01777);
        }
        if (last)
        {
            return;
        }
    }
}
}  // namespace

String DescribeFailure(IoResult result, const char* operation)
{
    switch (result)
    {
        case IoResult::Ok:
            return "no failure";
        case IoResult::Closed:
            return "the peer closed the connection";
        case IoResult::TimedOut:
            return String::Format("{0} timed out", operation);
        case IoResult::Malformed:
            return "a malformed frame header arrived";
        case IoResult::Failed:
            break;
    }
    return String::Format("{0} failed: {1}", operation, std::strerror(errno));
}

IoResult SendFrame(int fd, FrameHeader header, const void* body, std::size_t bodySize,
                   Clock::time_point deadline)
{
    std::uint8_t head[FrameHeader::Size] = {};
    std::memcpy(head, &header.frameSize, sizeof header.frameSize);
    head[4] = static_cast<std::uint8_t>(header.kind);
    Put16(head + 6, header.providerHandle);
    Put16(head + 8, header.serviceHandle);
    Put16(head + 10, header.methodId);

    iovec parts[2] = {{head, sizeof head}, {const_cast<void*>(body), bodySize}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = bodySize == 0 ? 1 : 2;
    while (message.msg_iovlen > 0)
    {
        if (const IoResult waited = WaitFor(fd, POLLOUT, deadline); waited != IoResult::Ok)
        {
            return waited;
        }
        const ssize_t sent = sendmsg(fd, &message, sendFlags);
        if (sent < 0)
        {
            if (errno == EAGAIN || errno == EINTR)
            {
                continue;
            }
            return TransferFailure();
        }
        // Step over what went out, part by part.
        auto left = static_cast<std::size_t>(sent);
        while (message.msg_iovlen > 0 && left >= message.msg_iov->iov_len)
        {
            left -= message.msg_iov->iov_len;
            ++message.msg_iov;
            --message.msg_iovlen;
        }
        if (message.msg_iovlen > 0)
        {
            message.msg_iov->iov_base = static_cast<std::uint8_t*>(message.msg_iov->iov_base) + left;
            message.msg_iov->iov_len -= left;
        }
    }
    return IoResult::Ok;
}

IoResult ReceiveBytes(int fd, void* data, std::size_t size, Clock::time_point deadline)
{
    auto* out = static_cast<std::uint8_t*>(data);
    while (size > 0)
    {
        if (const IoResult waited = WaitFor(fd, POLLIN, deadline); waited != IoResult::Ok)
        {
            return waited;
        }
        const ssize_t received = recv(fd, out, size, MSG_DONTWAIT);
        if (received == 0)
        {
            return IoResult::Closed;
        }
        if (received < 0)
        {
            if (errno == EAGAIN || errno == EINTR)
            {
                continue;
            }
            return TransferFailure();
        }
        out += received;
        size -= static_cast<std::size_t>(received);
    }
    return IoResult::Ok;
}

IoResult WaitForData(int fd, Clock::time_point deadline)
{
    for (;;)
    {
        if (const IoResult waited = WaitFor(fd, POLLIN, deadline); waited != IoResult::Ok)
        {
            return waited;
        }
        std::uint8_t byte = 0;
        const ssize_t peeked = recv(fd, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT);
        if (peeked > 0)
        {
            return IoResult::Ok;
        }
        if (peeked == 0)
        {
            return IoResult::Closed;
        }
        if (errno != EAGAIN && errno != EINTR)
        {
            return TransferFailure();
        }
    }
}

IoResult ReceiveHeader(int fd, FrameHeader& header, Clock::time_point deadline)
{
    std::uint8_t head[FrameHeader::Size];
    if (const IoResult received = ReceiveBytes(fd, head, sizeof head, deadline); received != IoResult::Ok)
    {
        return received;
    }
    std::memcpy(&header.frameSize, head, sizeof header.frameSize);
    header.kind = static_cast<FrameKind>(head[4]);
    header.providerHandle = Get16(head + 6);
    header.serviceHandle = Get16(head + 8);
    header.methodId = Get16(head + 10);
    const bool knownKind = head[4] >= static_cast<std::uint8_t>(FrameKind::Resolve) &&
                           head[4] <= static_cast<std::uint8_t>(FrameKind::Response);
    return knownKind && head[5] == 0 && header.frameSize >= FrameHeader::Size ? IoResult::Ok
                                                                              : IoResult::Malformed;
}

IoResult DiscardBytes(int fd, std::size_t size, Clock::time_point deadline)
{
    std::uint8_t sink[4096];
    while (size > 0)
    {
        const std::size_t chunk = std::min(size, sizeof sink);
        if (const IoResult received = ReceiveBytes(fd, sink, chunk, deadline); received != IoResult::Ok)
        {
            return received;
        }
        size -= chunk;
    }
    return IoResult::Ok;
}

String GetEndpointPath(const TulSettings& settings, const String& providerName)
{
    String path = settings.endpointDirectory;
    if (path.empty() || path.back() != '/')
    {
        path += '/';
    }
    return path + EncodeName(settings.systemName, false) + "." + EncodeName(providerName, true) + ".sock";
}

int Listen(const String& path, const String& providerName)
{
    sockaddr_un address;
    if (!MakeAddress(path, address))
    {
        throw ArgumentException::Create(
            "providerName", providerName,
            String::Format("The endpoint path '{0}' is longer than a socket allows", path));
    }
    EnsureDirectory(path.substr(0, path.rfind('/')));
    const int fd = NewSocket();
    if (fd < 0)
    {
        throw CommunicationException("Cannot make a socket for provider '{0}': {1}", providerName,
                                     std::strerror(errno));
    }
    const auto* raw = reinterpret_cast<const sockaddr*>(&address);
    int bound = bind(fd, raw, sizeof address);
    if (bound != 0 && errno == EADDRINUSE)
    {
        if (IsLive(address))
        {
            close(fd);
            throw InvalidOperationException("Provider '{0}' is served by another process at '{1}'",
                                            providerName, path);
        }
        unlink(path.c_str());  // left behind by a process that ended without removing it
        bound = bind(fd, raw, sizeof address);
    }
    // Who may call what is the authorizator's decision, on the caller's credentials, so every local user
    // may connect.
    if (bound != 0 || chmod(path.c_str(), 0666) != 0 || listen(fd, SOMAXCONN) != 0)
    {
        const int error = errno;
        close(fd);
        throw CommunicationException("Cannot serve provider '{0}' at '{1}': {2}", providerName, path,
                                     std::strerror(error));
    }
    return fd;
}

int Connect(const String& path, std::chrono::milliseconds wait)
{
    sockaddr_un address;
    if (!MakeAddress(path, address))
    {
        return -1;
    }
    const auto deadline = Clock::now() + wait;
    for (;;)
    {
        const int fd = NewSocket();
        if (fd < 0)
        {
            return -1;
        }
        if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        {
            return fd;
        }
        const int error = errno;
        close(fd);
        const bool mayComeUp = error == ENOENT || error == ECONNREFUSED || error == EAGAIN;
        const auto now = Clock::now();
        if (!mayComeUp || now >= deadline)
        {
            return -1;
        }
        std::this_thread::sleep_for(std::min<Clock::duration>(std::chrono::milliseconds(20), deadline - now));
    }
}
}  // namespace Kiv::System::Tul::Internal
