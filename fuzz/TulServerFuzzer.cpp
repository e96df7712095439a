// The server side of the transport under a hostile client. The input is what a client sends on one
// connection to provider "Fuzz" of this process, which publishes the echo service of the transport's
// tests (its waiting and calling-out operations made harmless). The connection goes through the real
// server: frame header checks, the size limit, body reading, the stub's Invoke on a TulServerContext and
// the failure responses.
//
// Properties: the server closes the connection within a deadline after the input ends; what it sent is
// a sequence of whole response frames, each within the size limit, each body a confirmation followed,
// for a failure, by a report that reads to its end.

#include "FuzzCheck.h"

#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Logging/LogManager.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Kiv::System::Tul;

namespace
{
constexpr std::size_t maxFrameSize = 64 * 1024;

/// The echo service without what would make a run slow or reach outside the process.
class HarmlessEcho : public Echo::EchoServiceImpl
{
public:
    void Sleep(std::uint32_t) override {}
    Kiv::String CallBack(const Kiv::String&, const Kiv::String& text) override { return text; }
    /// Up to a little more than the frame limit, to reach the check of the response's size.
    Kiv::String Fill(std::uint32_t length) override
    {
        return EchoServiceImpl::Fill(length % (maxFrameSize + 64));
    }
};

class HarmlessEchoFactory : public ITulServiceFactory
{
public:
    bool GetUsesSecurityStub() const override { return false; }
    const Kiv::String& GetServiceProviderName() const override { return providerName; }
    ITulService* CreateServiceImpl(const char*, ITulAuthorizator*) override { return new HarmlessEcho; }
    ITulServiceStub* CreateServiceStub(const char*, ITulAuthorizator*) override
    {
        return new Echo::EchoServiceStub(new HarmlessEcho);
    }

private:
    Kiv::String providerName;
};

/// Publishes "Fuzz" in a system and an endpoint directory of this run's own.
class Server
{
public:
    Server()
    {
        // The server warns of every connection it closes for a broken frame, and here most are.
        Kiv::System::Commons::Logging::LogManager::UseNullSink();
        directory = KivFuzz::MakeDirectory();
        TulSettings settings;
        settings.systemName = "fuzz-" + std::to_string(getpid());
        settings.endpointDirectory = directory;
        settings.callTimeLimit = std::chrono::seconds(2);
        settings.maxFrameSize = maxFrameSize;
        ServiceManager::Configure(settings);
        ServiceManager::PublishService("Fuzz", Echo::serviceName, factory);
        endpoint = directory + "/" + settings.systemName + ".Fuzz.sock";
    }
    ~Server()
    {
        ServiceManager::Shutdown();
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    const std::string& GetEndpoint() const { return endpoint; }

private:
    HarmlessEchoFactory factory;
    std::string directory;
    std::string endpoint;
};

int Connect(const std::string& path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    KIV_FUZZ_CHECK(fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
    return fd;
}

/// Sends `input`, then ends sending, and reads all the server sends until it closes. Both at once,
/// since a server that answers a request before it reads the next may wait for its reader.
std::vector<std::uint8_t> Exchange(int fd, const std::uint8_t* input, std::size_t size)
{
    std::vector<std::uint8_t> received;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::size_t sent = 0;
    bool sending = true;
    if (size == 0)
    {
        shutdown(fd, SHUT_WR);
        sending = false;
    }
    for (;;)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        KIV_FUZZ_CHECK(left.count() > 0);  // the server hangs
        pollfd entry{fd, static_cast<short>(POLLIN | (sending ? POLLOUT : 0)), 0};
        if (poll(&entry, 1, static_cast<int>(left.count())) <= 0)
        {
            continue;
        }
        if (sending && (entry.revents & (POLLOUT | POLLERR | POLLHUP)) != 0)
        {
            const ssize_t n = send(fd, input + sent, size - sent, MSG_NOSIGNAL);
            if (n > 0)
            {
                sent += static_cast<std::size_t>(n);
            }
            if (n < 0 && errno != EAGAIN && errno != EINTR)
            {
                sending = false;  // closed by the server, as it may after a malformed header
            }
            if (sending && sent == size)
            {
                shutdown(fd, SHUT_WR);
                sending = false;
            }
        }
        std::uint8_t chunk[65536];
        const ssize_t n = recv(fd, chunk, sizeof chunk, 0);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
        {
            return received;
        }
        if (n > 0)
        {
            received.insert(received.end(), chunk, chunk + n);
        }
    }
}

void CheckResponses(const std::vector<std::uint8_t>& stream)
{
    std::size_t offset = 0;
    while (offset < stream.size())
    {
        KIV_FUZZ_CHECK(stream.size() - offset >= 12);
        const std::uint8_t* frame = stream.data() + offset;
        std::uint32_t frameSize = 0;
        std::memcpy(&frameSize, frame, sizeof frameSize);
        KIV_FUZZ_CHECK(frame[4] == 3 && frame[5] == 0);
        KIV_FUZZ_CHECK(frameSize > 12 && frameSize <= maxFrameSize && frameSize <= stream.size() - offset);
        RemotingReader reader(frame + 12, frameSize - 12);
        if (reader.ReadConfirmation())
        {
            try
            {
                TulExceptionRegistry::Throw(reader);
            }
            catch (const Kiv::Exception&)
            {
                KIV_FUZZ_CHECK(reader.IsAtEnd());
            }
        }
        offset += frameSize;
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Server server;
    const int fd = Connect(server.GetEndpoint());
    const std::vector<std::uint8_t> responses = Exchange(fd, data, size);
    close(fd);
    CheckResponses(responses);
    return 0;
}
