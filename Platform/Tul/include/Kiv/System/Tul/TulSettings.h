#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <chrono>
#include <cstddef>

#include <sys/types.h>

namespace Kiv::System::Tul
{
/// The endpoint directory of a process that names none: "/run/kiv-tul" for root, else
/// "$XDG_RUNTIME_DIR/kiv-tul" when that variable holds an absolute path, else "/tmp/kiv-tul-<uid>". Each
/// is a place that no other user can create or replace first.
KIV_API String GetDefaultEndpointDirectory();

/// How the services of this process meet those of other processes. The hosting process hands them to
/// ServiceManager::Configure before it publishes or fetches a service; the defaults serve one system per
/// machine.
struct TulSettings
{
    /// Only processes with the same system name meet, so that independent systems, and parallel test
    /// runs, share a machine without seeing each other. Must not be empty.
    String systemName = "default";
    /// Where the endpoints are: one Unix socket per provider that a process publishes, named
    /// "<systemName>.<providerName>.sock". Characters other than letters, digits, '-' and '_' ('.' is kept
    /// in the provider name) are written as %XX. A process that publishes creates a missing directory
    /// with mode 0755 (others may connect, not create, rename or remove), and refuses one that belongs to
    /// a user other than itself and root, or that group or others may write, as it refuses a parent that
    /// others may write without the sticky bit. A client trusts only a directory of root, of its own user
    /// or of `systemUid`.
    String endpointDirectory = GetDefaultEndpointDirectory();
    /// How long GetService keeps trying to reach a provider whose process may still be starting. A
    /// provider that answers but hasn't published the service yet is asked again for up to a second of it.
    std::chrono::milliseconds connectWait{3000};
    /// The longest a remote call may take: waiting for the connection, and from sending the request to the
    /// end of its response.
    std::chrono::milliseconds callTimeLimit{10000};
    /// The largest frame, its 12-byte header included, that this process sends or accepts.
    std::size_t maxFrameSize = 16 * 1024 * 1024;
    /// Calls to services that this process publishes go through its own endpoint and a server thread, as
    /// remote calls do: for tests of proxies and stubs. Off, they reach the service object directly.
    bool marshalLocalCalls = false;
    /// The most memory that one payload read from a message may take in this process. An element can be
    /// one byte on the wire and over 500 in memory, so the frame size alone would let one message cost
    /// its receiver hundreds of times its size; this bound is checked against the announced length before
    /// anything is reserved. The default admits about 129,000 fields; a call being served then costs at
    /// most one frame plus this much.
    std::size_t maxPayloadMemory = 64 * 1024 * 1024;
    /// The user that runs the system's broker, when it is neither root nor this process's user: a client
    /// trusts an endpoint only when its directory and its serving process (by the kernel's credentials of
    /// the connection) belong to root, to the client's own user or to this one. NoUid: nobody else.
    uid_t systemUid = NoUid;
    /// Connections, each with its serving thread, that one user other than this process's own user and
    /// root may hold open to this process's endpoints; a connection over it is closed at once.
    std::size_t maxConnectionsPerUid = 64;

    static constexpr uid_t NoUid = static_cast<uid_t>(-1);
};
}  // namespace Kiv::System::Tul
