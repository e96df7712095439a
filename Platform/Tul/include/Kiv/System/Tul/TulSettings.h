#pragma once

#include <Kiv/BasicString.h>

#include <chrono>
#include <cstddef>

namespace Kiv::System::Tul
{
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
    /// in the provider name) are written as %XX. A missing directory is created with mode 1777, since
    /// processes of several users meet there.
    String endpointDirectory = "/tmp/kiv-tul";
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
};
}  // namespace Kiv::System::Tul
