#pragma once

// The transport's frames written by hand, and a client that sends them, or anything else, on a raw
// socket: for tests of what a server does with a client that doesn't follow the protocol.

#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace RawWire
{
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t resolve = 1, invoke = 2, response = 3;

/// A frame as the transport puts it on the socket: size, kind, a zero byte and three 16-bit numbers.
inline Bytes Frame(std::uint8_t kind, std::uint16_t provider, std::uint16_t service, std::uint16_t method,
                   const Bytes& body = {})
{
    // The body's extent is read once: GCC 12 for 32-bit ARM otherwise reloads it after the header's writes
    // and warns of the copy as out of bounds.
    const std::uint8_t* const bodyBegin = body.data();
    const std::size_t bodySize = body.size();
    Bytes frame(12 + bodySize);
    const auto size = static_cast<std::uint32_t>(frame.size());
    std::memcpy(frame.data(), &size, 4);
    frame[4] = kind;
    std::memcpy(frame.data() + 6, &provider, 2);
    std::memcpy(frame.data() + 8, &service, 2);
    std::memcpy(frame.data() + 10, &method, 2);
    std::copy(bodyBegin, bodyBegin + bodySize, frame.begin() + 12);
    return frame;
}

template <class Write>
Bytes Body(Write write)
{
    Kiv::System::Tul::RemotingWriter writer;
    write(writer);
    return writer.GetBuffer();
}

/// A client that speaks the frame protocol by hand, or not at all. A wait for the server ends after 30 s.
class RawConnection
{
public:
    explicit RawConnection(const std::string& path) : fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        const timeval limit{30, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
    }
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;
    ~RawConnection() { close(fd); }

    /// Sends what the server takes; after it closed, the rest is refused, which is no failure here.
    void Send(const Bytes& bytes)
    {
        [[maybe_unused]] const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    void EndSending() { shutdown(fd, SHUT_WR); }

    /// Sends a request and returns the body of its response.
    Bytes Call(const Bytes& request)
    {
        Send(request);
        const Bytes header = Receive(12);
        std::uint32_t size = 12;
        if (header.size() == 12)
        {
            std::memcpy(&size, header.data(), 4);
        }
        EXPECT_EQ(header.size(), 12u) << "no response";
        return Receive(size > 12 ? size - 12 : 0);
    }

    /// True when the server closes the connection; what it sent before is dropped.
    bool SeesEndOfStream()
    {
        std::uint8_t sink[4096];
        ssize_t received = 0;
        while ((received = recv(fd, sink, sizeof sink, 0)) > 0)
        {
        }
        return received == 0 || errno == ECONNRESET;
    }

private:
    /// The next `count` bytes; fewer when the connection ends or the server falls silent.
    Bytes Receive(std::size_t count)
    {
        Bytes bytes(count);
        const ssize_t received = count == 0 ? 0 : recv(fd, bytes.data(), count, MSG_WAITALL);
        bytes.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
        return bytes;
    }

    int fd;
};
}  // namespace RawWire
