#include "TulServer.h"

#include "Authorize.h"
#include "ServiceRegistry.h"
#include "WireText.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceStub.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/TulAfterResponse.h>
#include <Kiv/System/Tul/TulExceptionRegistry.h>
#include <Kiv/System/Tul/TulServerContext.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <thread>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kiv::System::Tul::Internal
{
using Commons::Logging::LogLevel;
using Commons::Threading::Thread;
using Commons::Threading::ThreadSettings;

namespace
{
/// The stubs of one connection, made at the first call of a service and kept while it lasts; a stub is
/// made anew when the service was published again with another factory.
struct CachedStub
{
    ITulServiceFactory* factory = nullptr;
    std::unique_ptr<ITulServiceStub> stub;
};
using Stubs = std::map<std::uint16_t, CachedStub>;

/// Two names and their lengths; a larger resolve request is no request.
constexpr std::size_t maxResolveBody = 4096;

void WriteFailure(RemotingWriter& writer, std::exception_ptr error)
{
    writer.Reset();
    writer.WriteConfirmation(true);
    TulExceptionRegistry::Write(writer, std::move(error));
}

ITulServiceStub& GetStub(const String& providerName, ServiceRegistry::Handles handles,
                         const std::optional<ServiceRegistry::Publication>& publication, Stubs& stubs)
{
    if (!publication || *publication->providerName != providerName)
    {
        throw InvalidOperationException("Provider '{0}' has no service of handle {1}", providerName,
                                        handles.service);
    }
    CachedStub& cached = stubs[handles.service];
    if (cached.stub == nullptr || cached.factory != publication->factory)
    {
        cached.stub.reset(publication->factory->CreateServiceStub(publication->providerName->c_str(),
                                                                  publication->authorizator));
        cached.factory = publication->factory;
        if (cached.stub == nullptr)
        {
            throw InvalidOperationException("The factory of service '{0}' of provider '{1}' makes no stub",
                                            *publication->serviceName, providerName);
        }
    }
    return *cached.stub;
}

/// Serves one request into `writer`. Every failure, of the request or of the operation, becomes the
/// response; `header` gets the handles of a resolved service.
void Handle(const ServiceRegistry& registry, const String& providerName, const TulCallerIdentity& caller,
            FrameHeader& header, const std::optional<ServiceRegistry::Publication>& publication,
            const std::vector<std::uint8_t>& body, RemotingWriter& writer, Stubs& stubs)
{
    RemotingReader reader(body.data(), body.size());
    try
    {
        if (header.kind == FrameKind::Resolve)
        {
            const String provider = ReadText(reader);
            const String service = ReadText(reader);
            const auto handles =
                provider == providerName ? registry.GetHandles(provider, service) : std::nullopt;
            if (!handles)
            {
                throw InvalidOperationException("Service '{0}' is not published by provider '{1}'", service,
                                                provider);
            }
            header.providerHandle = handles->provider;
            header.serviceHandle = handles->service;
            writer.WriteConfirmation(false);
            return;
        }
        if (header.kind != FrameKind::Invoke)
        {
            throw CommunicationException("A frame of kind {0} is no request", static_cast<int>(header.kind));
        }
        ITulServiceStub& stub =
            GetStub(providerName, {header.providerHandle, header.serviceHandle}, publication, stubs);
        TulServerContext context(reader, writer);
        {
            TulCallerIdentity::Scope scope(caller);
            stub.Invoke(header.methodId, context);
        }
        if (context.IsAborted())
        {
            throw CommunicationException(Exception::Verbatim{}, context.GetAbortText());
        }
    }
    catch (...)
    {
        WriteFailure(writer, std::current_exception());
    }
}
bool IsTrustedUser(uid_t uid)
{
    return uid == 0 || uid == geteuid();
}

/// Whether `caller` may make the call of `header` to `publication`, by the header alone: guarded services
/// ask the installed authorizator, the others (the system's internal ones) the internal authorizator,
/// which needn't be asked for this process's user and root. A refusal is written as the response.
bool MayInvoke(const ServiceRegistry& registry, const ServiceRegistry::Publication& publication,
               const FrameHeader& header, const TulCallerIdentity& caller, RemotingWriter& writer)
{
    const bool guarded = publication.factory->GetUsesSecurityStub();
    if (!guarded && IsTrustedUser(caller.uid))
    {
        return true;
    }
    const char* name = publication.factory->GetOperationName(header.methodId);
    const String operation = name != nullptr ? String(name) : String::Format("method {0}", header.methodId);
    try
    {
        Authorize(guarded ? publication.authorizator : registry.GetInternalAuthorizator(),
                  publication.providerName->c_str(), publication.serviceName->c_str(), operation.c_str(),
                  caller);
        return true;
    }
    catch (...)
    {
        WriteFailure(writer, std::current_exception());
        return false;
    }
}

/// The supplementary groups of the peer of `fd`, as the kernel has them.
std::vector<gid_t> GetPeerGroups(int fd)
{
    std::vector<gid_t> groups(32);
    for (;;)
    {
        auto length = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) == 0)
        {
            groups.resize(length / sizeof(gid_t));
            return groups;
        }
        if (errno != ERANGE || length <= groups.size() * sizeof(gid_t))
        {
            return {};
        }
        groups.resize(length / sizeof(gid_t));
    }
}
}  // namespace

TulServer::TulServer(const TulSettings& settings, const ServiceRegistry& registry)
    : settings(settings), registry(registry), wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (wakeFd < 0)
    {
        throw CommunicationException("Cannot make the server's wake-up event: {0}", std::strerror(errno));
    }
    acceptThread = std::make_unique<Thread>(Commons::Threading::MakeDelegate(this, &TulServer::AcceptLoop),
                                            nullptr, ThreadSettings{"TulAccept"});
    try
    {
        acceptThread->Start();
    }
    catch (...)
    {
        close(wakeFd);
        throw;
    }
}

TulServer::~TulServer()
{
    Stop();
}

void TulServer::AddEndpoint(const String& providerName)
{
    String path;
    const int fd = Listen(settings, providerName, path);
    struct stat status = {};
    lstat(path.c_str(), &status);
    {
        std::lock_guard<std::mutex> lock(mutex);
        endpoints.push_back({providerName, path, fd, status.st_dev, status.st_ino});
    }
    Wake();
}

bool TulServer::Serves(const String& providerName) const
{
    std::lock_guard<std::mutex> lock(mutex);
    return std::any_of(endpoints.begin(), endpoints.end(),
                       [&](const Endpoint& endpoint) { return endpoint.providerName == providerName; });
}

bool TulServer::HasEndpoints() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return !endpoints.empty();
}

void TulServer::Wake() noexcept
{
    if (wakeFd >= 0)
    {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(wakeFd, &one, sizeof one);
    }
}

void TulServer::AcceptLoop(void*)
{
    std::vector<Endpoint> watching;
    std::vector<pollfd> watched;
    for (;;)
    {
        std::list<std::unique_ptr<Connection>> ended;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (stopping)
            {
                return;
            }
            watching = endpoints;
            for (auto it = connections.begin(); it != connections.end();)
            {
                const auto current = it++;
                if ((*current)->finished)
                {
                    ended.splice(ended.end(), connections, current);
                }
            }
        }
        for (const auto& connection : ended)
        {
            connection->thread->Join();
            close(connection->fd);
            Release(*connection);
        }
        watched.assign(1, pollfd{wakeFd, POLLIN, 0});
        for (const Endpoint& endpoint : watching)
        {
            watched.push_back({endpoint.fd, POLLIN, 0});
        }
        if (poll(watched.data(), watched.size(), -1) < 0)
        {
            continue;  // EINTR
        }
        if (watched[0].revents != 0)
        {
            std::uint64_t count = 0;
            [[maybe_unused]] const ssize_t read = ::read(wakeFd, &count, sizeof count);
        }
        for (std::size_t i = 1; i < watched.size(); ++i)
        {
            if (watched[i].revents != 0)
            {
                Accept(watching[i - 1]);
            }
        }
    }
}

void TulServer::Accept(const Endpoint& endpoint)
{
    for (;;)
    {
        const int fd = accept4(endpoint.fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0)
        {
            if (errno == EINTR || errno == ECONNABORTED)
            {
                continue;
            }
            if (errno != EAGAIN)
            {
                // Out of descriptors or memory, say: wait a little rather than spin on the ready socket.
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
            return;
        }
        ucred credentials{};
        socklen_t length = sizeof credentials;
        if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
        {
            close(fd);
            continue;
        }
        const TulCallerIdentity caller{credentials.uid, credentials.gid, credentials.pid, GetPeerGroups(fd)};
        String warning;
        if (!Admit(caller, endpoint.providerName, warning))
        {
            close(fd);
            if (!warning.empty())
            {
                Log(LogLevel::Warning, "{0}", warning);
            }
            continue;
        }
        auto connection = std::make_unique<Connection>();
        connection->fd = fd;
        connection->providerName = endpoint.providerName;
        connection->caller = caller;
        connection->bounded = !IsTrustedUser(caller.uid);
        Connection& serving = *connection;
        connection->thread = std::make_unique<Thread>([this, &serving](void*) { Serve(serving); }, nullptr,
                                                      ThreadSettings{"TulConn"});
        try
        {
            connection->thread->Start();
        }
        catch (const Exception&)
        {
            close(fd);  // the caller sees the connection closed
            Release(*connection);
            continue;
        }
        std::lock_guard<std::mutex> lock(mutex);
        connections.push_back(std::move(connection));
    }
}

bool TulServer::Admit(const TulCallerIdentity& caller, const String& providerName, String& warning)
{
    if (IsTrustedUser(caller.uid))
    {
        return true;
    }
    std::lock_guard<std::mutex> lock(mutex);
    std::size_t& open = connectionsOfUid[caller.uid];
    if (open < settings.maxConnectionsPerUid)
    {
        ++open;
        return true;
    }
    if (warnedUids.insert(caller.uid).second)
    {
        warning = String::Format(
            "Closed the connection of pid {0} (uid {1}) to provider '{2}': uid {1} holds {3} connections, "
            "the "
            "most for a user other than uid {4} and root; more are closed without a warning until it holds "
            "fewer",
            caller.pid, caller.uid, providerName, open, geteuid());
    }
    return false;
}

void TulServer::Release(const Connection& connection)
{
    if (!connection.bounded)
    {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex);
    const auto found = connectionsOfUid.find(connection.caller.uid);
    if (found != connectionsOfUid.end() && --found->second == 0)
    {
        connectionsOfUid.erase(found);
    }
    warnedUids.erase(connection.caller.uid);
}

void TulServer::Serve(Connection& connection)
{
    // Why this server ends the connection; empty when the peer closed it between two frames.
    String reason;
    try
    {
        reason = ServeRequests(connection);
    }
    catch (...)
    {
        reason = "the server ran out of resources";  // memory, say; the caller sees the connection closed
    }
    if (!reason.empty())
    {
        bool stopped = false;
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopped = stopping;
        }
        if (!stopped)  // Stop shuts every connection down, which ends a frame in its middle
        {
            Log(LogLevel::Warning, "Closed the connection of pid {0} (uid {1}) to provider '{2}': {3}",
                connection.caller.pid, connection.caller.uid, connection.providerName, reason);
        }
    }
    connection.finished = true;
    Wake();
}

String TulServer::ServeRequests(Connection& connection)
{
    const auto limit = String::Format("{0} ms", settings.callTimeLimit.count());
    RemotingWriter writer;
    std::vector<std::uint8_t> body;
    FrameReader reader;
    Stubs stubs;
    for (;;)
    {
        // An idle connection may wait for its next request as long as it likes. Once a frame has begun,
        // the whole of it must arrive within the call time limit, and its response must be taken within
        // that limit too, so that a peer can't hold this thread with half a frame or an unread response.
        if (const IoResult waited = reader.WaitForData(connection.fd, NoDeadline); waited != IoResult::Ok)
        {
            return waited == IoResult::Closed ? String() : DescribeFailure(waited, "waiting for a request");
        }
        const auto deadline = Clock::now() + settings.callTimeLimit;
        // What the served operation leaves for after its response runs when this pass ends, however.
        AfterResponseSlot afterResponse;
        FrameHeader header;
        IoResult received = reader.ReceiveHeader(connection.fd, header, deadline);
        writer.Reset();
        if (received == IoResult::Ok && header.frameSize > settings.maxFrameSize)
        {
            // Read past it, so that the connection stays in step with a peer that allows larger frames.
            received = reader.DiscardBytes(connection.fd, header.GetBodySize(), deadline);
            WriteFailure(
                writer,
                std::make_exception_ptr(CommunicationException(
                    "Request of {0} bytes exceeds the maximum frame size of {1} bytes of provider '{2}'",
                    header.frameSize, settings.maxFrameSize, connection.providerName)));
        }
        else if (received == IoResult::Ok && header.kind == FrameKind::Resolve &&
                 header.GetBodySize() > maxResolveBody)
        {
            return String::Format("a resolve request of {0} bytes arrived, more than any names take",
                                  header.frameSize);
        }
        else if (received == IoResult::Ok)
        {
            std::optional<ServiceRegistry::Publication> publication;
            bool refused = false;
            if (header.kind == FrameKind::Invoke)
            {
                publication = registry.FindByHandles({header.providerHandle, header.serviceHandle});
                if (publication && *publication->providerName == connection.providerName &&
                    !MayInvoke(registry, *publication, header, connection.caller, writer))
                {
                    // Refused by the header: the body is read past, never kept, and the refusal answers.
                    received = reader.DiscardBytes(connection.fd, header.GetBodySize(), deadline);
                    refused = true;
                }
            }
            if (!refused)
            {
                received = reader.ReceiveBody(connection.fd, body, header.GetBodySize(), deadline);
                if (received == IoResult::Ok)
                {
                    afterResponse.Open();
                    Handle(registry, connection.providerName, connection.caller, header, publication, body,
                           writer, stubs);
                    afterResponse.Close();
                }
            }
        }
        switch (received)
        {
            case IoResult::Ok:
                break;
            case IoResult::Closed:
                return "the peer closed the connection in the middle of a frame";
            case IoResult::TimedOut:
                return "a frame was not complete within the call time limit of " + limit;
            default:
                return DescribeFailure(received, "receiving a request");
        }
        if (FrameHeader::Size + writer.GetSize() > settings.maxFrameSize)
        {
            const std::size_t size = FrameHeader::Size + writer.GetSize();
            WriteFailure(
                writer,
                std::make_exception_ptr(CommunicationException(
                    "Response of {0} bytes exceeds the maximum frame size of {1} bytes of provider '{2}'",
                    size, settings.maxFrameSize, connection.providerName)));
        }
        header.kind = FrameKind::Response;
        header.frameSize = static_cast<std::uint32_t>(FrameHeader::Size + writer.GetSize());
        const IoResult sent = SendFrame(connection.fd, header, writer.GetData(), writer.GetSize(),
                                        Clock::now() + settings.callTimeLimit);
        if (sent != IoResult::Ok)
        {
            return sent == IoResult::TimedOut
                       ? "the response was not taken within the call time limit of " + limit
                       : "the response could not be sent: " + DescribeFailure(sent, "sending");
        }
    }
}

void TulServer::RemoveEndpoint(const Endpoint& endpoint) noexcept
{
    // Only the file this server made: after a stale one was replaced, the path may be another process's.
    struct stat status = {};
    if (lstat(endpoint.path.c_str(), &status) == 0 && status.st_dev == endpoint.device &&
        status.st_ino == endpoint.inode)
    {
        unlink(endpoint.path.c_str());
    }
}

void TulServer::Stop() noexcept
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    Wake();
    if (acceptThread != nullptr && acceptThread->IsJoinable())
    {
        acceptThread->Join();
    }
    // The accept thread is gone, so the list is complete.
    std::list<std::unique_ptr<Connection>> ending;
    {
        std::lock_guard<std::mutex> lock(mutex);
        ending.swap(connections);
    }
    for (const auto& connection : ending)
    {
        shutdown(connection->fd, SHUT_RDWR);
    }
    for (const auto& connection : ending)
    {
        connection->thread->Join();
        close(connection->fd);
    }
    std::vector<Endpoint> removing;
    {
        std::lock_guard<std::mutex> lock(mutex);
        removing.swap(endpoints);
    }
    for (const Endpoint& endpoint : removing)
    {
        close(endpoint.fd);
        RemoveEndpoint(endpoint);
    }
    if (wakeFd >= 0)
    {
        close(wakeFd);
        wakeFd = -1;
    }
}

void TulServer::RemoveEndpointFiles() noexcept
{
    std::unique_lock<std::mutex> lock(mutex, std::try_to_lock);
    if (lock.owns_lock())
    {
        for (const Endpoint& endpoint : endpoints)
        {
            RemoveEndpoint(endpoint);
        }
    }
}
}  // namespace Kiv::System::Tul::Internal
