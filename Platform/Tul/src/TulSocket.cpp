#include "TulSocket.h"

#include <Kiv/Exceptions.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include <fcntl.h>
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

String DescribeMode(mode_t mode)
{
    return fmt::format("{:04o}", mode & 07777);
}

/// The real path of `directory`: every link in it resolved, so that what was checked is what is used.
/// Empty when it doesn't exist (errno tells).
String RealPath(const String& directory)
{
    const std::unique_ptr<char, void (*)(void*)> real(realpath(directory.c_str(), nullptr), std::free);
    return real != nullptr ? String(real.get()) : String();
}

/// Creates the missing directories of `directory`, the last with mode 0755 whatever the umask: other
/// users may reach endpoints there but not create, rename or remove any. Each is made, and the last one's
/// mode set, through a descriptor, so no link planted meanwhile is followed.
void CreateDirectories(const String& directory)
{
    for (std::size_t slash = directory.find('/', 1);; slash = directory.find('/', slash + 1))
    {
        const String prefix = directory.substr(0, slash);
        const bool last = slash == String::npos;
        if (mkdir(prefix.c_str(), 0755) == 0 && last)
        {
            const int fd = open(prefix.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            struct stat status = {};
            if (fd >= 0 && fstat(fd, &status) == 0 && status.st_uid == geteuid())
            {
                fchmod(fd, 0755);
            }
            if (fd >= 0)
            {
                close(fd);
            }
        }
        if (last)
        {
            return;
        }
    }
}

/// Creates `directory` if need be and returns its real path, after the checks of a directory that this
/// process serves in: it and its parents belong to this user or root; it is writable by neither group nor
/// others; a parent is writable by them only with the sticky bit (as /tmp), which keeps others from
/// renaming it. Raises UnauthorizedAccessException naming the path, its owner and its mode.
String PrepareServingDirectory(const String& directory)
{
    CreateDirectories(directory);
    const String real = RealPath(directory);
    if (real.empty())
    {
        throw CommunicationException("Cannot make the endpoint directory '{0}': {1}", directory,
                                     std::strerror(errno));
    }
    const uid_t self = geteuid();
    for (std::size_t slash = 0; slash != String::npos;)
    {
        slash = real.find('/', slash + 1);
        const String prefix =
            slash == String::npos ? real : String(real.substr(0, std::max<std::size_t>(slash, 1)));
        struct stat status = {};
        if (lstat(prefix.c_str(), &status) != 0)
        {
            throw CommunicationException("Cannot inspect the endpoint directory '{0}': {1}", prefix,
                                         std::strerror(errno));
        }
        const bool last = slash == String::npos;
        const bool othersWrite = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
        if (!S_ISDIR(status.st_mode) || (status.st_uid != self && status.st_uid != 0) ||
            (othersWrite && (last || (status.st_mode & S_ISVTX) == 0)))
        {
            throw UnauthorizedAccessException(
                "The endpoint directory '{0}' is unsafe: '{1}' belongs to uid {2} with mode {3}; it must "
                "belong to uid {4} or root and be writable by neither group nor others{5}",
                directory, prefix, status.st_uid, DescribeMode(status.st_mode), self,
                last ? "" : " (unless sticky)");
        }
    }
    return real;
}

/// Whether `uid` is one this process trusts to serve it.
bool IsTrusted(uid_t uid, const TulSettings& settings)
{
    return uid == 0 || uid == geteuid() ||
           (settings.systemUid != TulSettings::NoUid && uid == settings.systemUid);
}

String DescribeTrusted(const TulSettings& settings)
{
    String text = fmt::format("0 (root), {} (this process)", geteuid());
    if (settings.systemUid != TulSettings::NoUid)
    {
        text += fmt::format(", {} (the system's)", settings.systemUid);
    }
    return text;
}

/// Binds `fd` to `path` with mode 0666 (whom a call is granted to is the authorizator's decision, on the
/// caller's credentials, so every local user may connect). The mode can't be given to bind, and a chmod by
/// path after it follows whatever link someone put there; so the socket is bound in a directory of its
/// own that nobody else can enter, given its mode there, and linked into place, which never replaces a
/// file. EEXIST from link leaves the decision about the file in the way to the caller.
int BindPrivately(int fd, const String& path)
{
    const String directory = path.substr(0, path.rfind('/'));
    std::string scratch = directory + "/.bind-XXXXXX";
    if (mkdtemp(scratch.data()) == nullptr)
    {
        return -1;
    }
    const String temporary = scratch + "/s";
    sockaddr_un address;
    int result = -1;
    if (MakeAddress(temporary, address) &&
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    {
        result = chmod(temporary.c_str(), 0666) == 0 ? link(temporary.c_str(), path.c_str()) : -1;
    }
    const int error = errno;
    unlink(temporary.c_str());
    rmdir(scratch.c_str());
    errno = error;
    return result;
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
        const ssize_t sent = sendmsg(fd, &message, sendFlags);
        if (sent < 0)
        {
            if (errno == EAGAIN)
            {
                if (const IoResult waited = WaitFor(fd, POLLOUT, deadline); waited != IoResult::Ok)
                {
                    return waited;
                }
                continue;
            }
            if (errno == EINTR)
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

IoResult FrameReader::ReceiveSome(int fd, std::uint8_t* data, std::size_t size, std::size_t& received,
                                  Clock::time_point deadline)
{
    for (;;)
    {
        if (waited)
        {
            if (const IoResult result = WaitFor(fd, POLLIN, deadline); result != IoResult::Ok)
            {
                return result;
            }
        }
        const ssize_t count = recv(fd, data, size, MSG_DONTWAIT);
        if (count > 0)
        {
            received = static_cast<std::size_t>(count);
            return IoResult::Ok;
        }
        if (count == 0)
        {
            return IoResult::Closed;
        }
        if (errno == EAGAIN)
        {
            waited = true;
        }
        else if (errno != EINTR)
        {
            return TransferFailure();
        }
    }
}

IoResult FrameReader::Fill(int fd, Clock::time_point deadline)
{
    if (buffer == nullptr)
    {
        buffer.reset(new std::uint8_t[capacity]);
    }
    if (begin > 0)
    {
        std::memmove(buffer.get(), buffer.get() + begin, Buffered());
        end -= begin;
        begin = 0;
    }
    std::size_t received = 0;
    const IoResult result = ReceiveSome(fd, buffer.get() + end, capacity - end, received, deadline);
    end += received;
    return result;
}

IoResult FrameReader::WaitForData(int fd, Clock::time_point deadline)
{
    return Buffered() > 0 ? IoResult::Ok : Fill(fd, deadline);
}

IoResult FrameReader::ReceiveHeader(int fd, FrameHeader& header, Clock::time_point deadline)
{
    while (Buffered() < FrameHeader::Size)
    {
        if (const IoResult received = Fill(fd, deadline); received != IoResult::Ok)
        {
            return received;
        }
    }
    const std::uint8_t* head = buffer.get() + begin;
    begin += FrameHeader::Size;
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

IoResult FrameReader::DiscardBytes(int fd, std::size_t size, Clock::time_point deadline)
{
    while (size > 0)
    {
        if (Buffered() == 0)
        {
            if (const IoResult received = Fill(fd, deadline); received != IoResult::Ok)
            {
                return received;
            }
        }
        const std::size_t taken = std::min(size, Buffered());
        begin += taken;
        size -= taken;
    }
    // The next frame has begun to arrive already: the peer is ahead, so try a receive before a poll.
    waited = waited && Buffered() == 0;
    return IoResult::Ok;
}

IoResult FrameReader::ReceiveBody(int fd, std::vector<std::uint8_t>& body, std::size_t size,
                                  Clock::time_point deadline)
{
    constexpr std::size_t step = 64 * 1024;
    body.clear();
    while (body.size() < size)
    {
        const std::size_t have = body.size();
        const std::size_t wanted = size - have;
        if (Buffered() > 0)
        {
            const std::size_t taken = std::min(wanted, Buffered());
            body.insert(body.end(), buffer.get() + begin, buffer.get() + begin + taken);
            begin += taken;
        }
        else if (wanted < capacity)
        {
            if (const IoResult received = Fill(fd, deadline); received != IoResult::Ok)
            {
                return received;
            }
        }
        else
        {
            // Straight into the body, which never grows by more than a step ahead of what arrived.
            body.resize(have + std::min(step, wanted));
            std::size_t received = 0;
            const IoResult result =
                ReceiveSome(fd, body.data() + have, body.size() - have, received, deadline);
            body.resize(have + received);
            if (result != IoResult::Ok)
            {
                return result;
            }
        }
    }
    waited = waited && Buffered() == 0;
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

int Listen(const TulSettings& settings, const String& providerName, String& path)
{
    const String requested = GetEndpointPath(settings, providerName);
    sockaddr_un address;
    if (!MakeAddress(requested, address))
    {
        throw ArgumentException::Create(
            "providerName", providerName,
            String::Format("The endpoint path '{0}' is longer than a socket allows", requested));
    }
    path = PrepareServingDirectory(settings.endpointDirectory) + requested.substr(requested.rfind('/'));
    if (!MakeAddress(path, address))
    {
        throw ArgumentException::Create(
            "providerName", providerName,
            String::Format("The endpoint path '{0}' is longer than a socket allows", path));
    }
    int fd = NewSocket();
    if (fd < 0)
    {
        throw CommunicationException("Cannot make a socket for provider '{0}': {1}", providerName,
                                     std::strerror(errno));
    }
    int bound = BindPrivately(fd, path);
    if (bound != 0 && errno == EEXIST)
    {
        // Left behind by a process that ended without removing it? Only a socket of this user that nobody
        // accepts on goes; lstat, since a link there is somebody else's doing.
        struct stat status = {};
        const bool found = lstat(path.c_str(), &status) == 0;
        if (found && S_ISSOCK(status.st_mode) && status.st_uid == geteuid() && IsLive(address))
        {
            close(fd);
            throw InvalidOperationException("Provider '{0}' is served by another process at '{1}'",
                                            providerName, path);
        }
        if (!found || !S_ISSOCK(status.st_mode) || status.st_uid != geteuid())
        {
            close(fd);
            throw UnauthorizedAccessException(
                "Cannot serve provider '{0}': '{1}' is in the way, {2} of uid {3} with mode {4}, and only a "
                "stale socket of uid {5} is replaced",
                providerName, path, found && S_ISSOCK(status.st_mode) ? "a socket" : "a file",
                found ? status.st_uid : 0, DescribeMode(status.st_mode), geteuid());
        }
        unlink(path.c_str());
        close(fd);  // bound already, in the private directory that is gone
        fd = NewSocket();
        bound = fd >= 0 ? BindPrivately(fd, path) : -1;
    }
    if (bound != 0 || listen(fd, SOMAXCONN) != 0)
    {
        const int error = errno;
        if (fd >= 0)
        {
            close(fd);
        }
        throw CommunicationException("Cannot serve provider '{0}' at '{1}': {2}", providerName, path,
                                     std::strerror(error));
    }
    return fd;
}

int Connect(const TulSettings& settings, const String& providerName)
{
    const String name = GetEndpointPath(settings, providerName);
    const String file = name.substr(name.rfind('/'));
    const auto deadline = Clock::now() + settings.connectWait;
    for (;;)
    {
        // Looked at on every try: the directory may come up after the first.
        const String directory = RealPath(settings.endpointDirectory);
        struct stat status = {};
        sockaddr_un address;
        int error = ENOENT;
        if (!directory.empty() && lstat(directory.c_str(), &status) == 0)
        {
            if (!IsTrusted(status.st_uid, settings))
            {
                throw CommunicationException(
                    "The endpoint '{0}' is in a directory of uid {1}, which this process doesn't trust; "
                    "trusted are uids {2}",
                    directory + file, status.st_uid, DescribeTrusted(settings));
            }
            if (!MakeAddress(directory + file, address))
            {
                return -1;
            }
            const int fd = NewSocket();
            if (fd < 0)
            {
                return -1;
            }
            if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            {
                ucred peer{};
                socklen_t length = sizeof peer;
                if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 ||
                    !IsTrusted(peer.uid, settings))
                {
                    close(fd);
                    throw CommunicationException(
                        "The endpoint '{0}' is served by pid {1} of uid {2}, which this process doesn't "
                        "trust; trusted are uids {3}",
                        directory + file, peer.pid, peer.uid, DescribeTrusted(settings));
                }
                return fd;
            }
            error = errno;
            close(fd);
        }
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

namespace Kiv::System::Tul
{
String GetDefaultEndpointDirectory()
{
    const uid_t self = geteuid();
    if (self == 0)
    {
        return "/run/kiv-tul";
    }
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && runtime[0] == '/')
    {
        return String(runtime) + "/kiv-tul";
    }
    return fmt::format("/tmp/kiv-tul-{}", self);
}
}  // namespace Kiv::System::Tul
