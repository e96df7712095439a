#pragma once

#include "TulSocket.h"

#include <Kiv/Logging/Loggable.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>
#include <Kiv/Threading/Thread.h>

#include <sys/types.h>

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

namespace Kiv::System::Tul::Internal
{
class ServiceRegistry;

/// The server side of this process: one endpoint per provider it publishes, a thread "TulAccept" that
/// accepts on all of them, and a thread "TulConn" per connection, so that a slow call from one process
/// never holds up another's, and a call may call back into its caller's process. A connection's thread
/// serves its requests in order, each with the stubs of that connection, under the caller's identity.
/// The caller's credentials come from the kernel at accept. A user other than this process's and root
/// holds at most TulSettings::maxConnectionsPerUid connections; a call is checked against its
/// service's authorizator by the header, before its body is read, and the body grows with the bytes
/// that arrive. A connection that breaks the frame protocol (a malformed header, a frame cut short or not
/// complete within the call time limit, a response not taken) is closed with a warning that names the reason;
/// a well-framed request that can't be served gets a failure response, and the connection goes on.
class TulServer : private Commons::Logging::Loggable<TulServer, false>
{
public:
    /// Serves the publications of `registry`, which must outlive it.
    TulServer(const TulSettings& settings, const ServiceRegistry& registry);
    TulServer(const TulServer&) = delete;
    TulServer& operator=(const TulServer&) = delete;
    /// Stops: see Stop.
    ~TulServer();

    /// Serves `providerName` from now on; raises as Listen does.
    void AddEndpoint(const String& providerName);
    bool Serves(const String& providerName) const;
    bool HasEndpoints() const;

    /// Stops accepting, ends every connection (shutdown(2) wakes a thread waiting for a request; one in a
    /// service call finishes that call), joins all threads, closes all sockets and removes the endpoints.
    void Stop() noexcept;
    /// Removes the endpoint files and nothing else; for the end of a process that didn't stop the server.
    void RemoveEndpointFiles() noexcept;

private:
    struct Endpoint
    {
        String providerName;
        String path;
        int fd;
        dev_t device;
        ino_t inode;
    };

    struct Connection
    {
        int fd = -1;
        String providerName;
        TulCallerIdentity caller;
        std::unique_ptr<Commons::Threading::Thread> thread;
        std::atomic<bool> finished{false};
        /// Counted against the bound of its user (TulSettings::maxConnectionsPerUid).
        bool bounded = false;
    };

    void AcceptLoop(void*);
    void Accept(const Endpoint& endpoint);
    void Serve(Connection& connection);
    /// Whether a connection of `caller` may be served; counts it against its user's bound if so, and
    /// tells the one warning of the user's spell over the bound in `warning`.
    bool Admit(const TulCallerIdentity& caller, const String& providerName, String& warning);
    /// Gives the place of an ended connection back to its user.
    void Release(const Connection& connection);
    /// Serves until the connection ends; returns why this server ends it, or empty when the peer closed
    /// it between two frames.
    String ServeRequests(Connection& connection);
    /// Wakes the accept thread, to stop, to watch a new endpoint or to reap ended connections.
    void Wake() noexcept;
    void RemoveEndpoint(const Endpoint& endpoint) noexcept;

    const TulSettings settings;
    const ServiceRegistry& registry;
    int wakeFd;
    mutable std::mutex mutex;
    std::vector<Endpoint> endpoints;
    std::list<std::unique_ptr<Connection>> connections;
    bool stopping = false;
    /// Open connections of users other than this process's own and root, and the users that were told
    /// they are over the bound (once, until they are below it again).
    std::map<uid_t, std::size_t> connectionsOfUid;
    std::set<uid_t> warnedUids;
    std::unique_ptr<Commons::Threading::Thread> acceptThread;
};
}  // namespace Kiv::System::Tul::Internal
