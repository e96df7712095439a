#include "TulClientImpl.h"
#include "WireText.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/TulExceptionRegistry.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <atomic>

#include <sys/socket.h>
#include <unistd.h>

namespace Kiv::System::Tul
{
using namespace Internal;

namespace
{
std::atomic<std::size_t> liveClients{0};
}  // namespace

TulClient::Impl::Impl(String providerName, int fd, const TulSettings& settings)
    : providerName(std::move(providerName)),
      callTimeLimit(settings.callTimeLimit),
      maxFrameSize(settings.maxFrameSize),
      fd(fd)
{
}

TulClient::Impl::~Impl()
{
    CloseSocket();
}

void TulClient::Impl::Lock()
{
    if (owner.load() == std::this_thread::get_id())
    {
        throw InvalidOperationException("This thread holds the connection to provider '{0}' already",
                                        providerName);
    }
    {
        std::unique_lock<std::mutex> lock(callMutex);
        if (!released.wait_for(lock, callTimeLimit, [this] { return !busy; }))
        {
            throw CommunicationException(
                "Call to provider '{0}' timed out after {1} ms waiting for the connection", providerName,
                callTimeLimit.count());
        }
        busy = true;
    }
    owner = std::this_thread::get_id();
    if (broken)
    {
        Unlock();
        ThrowBroken();
    }
}

void TulClient::Impl::ExpectOwner(const char* operation) const
{
    if (owner.load() != std::this_thread::get_id())
    {
        throw InvalidOperationException("{0} needs the transaction of the connection to provider '{1}'",
                                        operation, providerName);
    }
}

void TulClient::Impl::Unlock()
{
    owner = std::thread::id();
    if (broken)
    {
        CloseSocket();
    }
    {
        std::lock_guard<std::mutex> lock(callMutex);
        busy = false;
    }
    released.notify_one();
}

void TulClient::Impl::Break(const String& reason) noexcept
{
    std::lock_guard<std::mutex> lock(stateMutex);
    if (!broken)
    {
        brokenReason = reason;
        broken = true;
    }
    if (fd >= 0)
    {
        shutdown(fd, SHUT_RDWR);
    }
}

void TulClient::Impl::ThrowBroken() const
{
    String reason;
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        reason = brokenReason;
    }
    throw CommunicationException("Connection to provider '{0}' is lost: {1}", providerName, reason);
}

void TulClient::Impl::Close(const String& reason) noexcept
{
    Break(reason);
    std::lock_guard<std::mutex> lock(callMutex);
    if (!busy)
    {
        CloseSocket();
    }
}

void TulClient::Impl::CloseSocket() noexcept
{
    std::lock_guard<std::mutex> lock(stateMutex);
    if (fd >= 0)
    {
        close(fd);
        fd = -1;
        writer = RemotingWriter();
        body = std::vector<std::uint8_t>();
    }
}

void TulClient::Impl::Send(FrameKind kind, std::uint16_t providerHandle, std::uint16_t serviceHandle,
                           std::uint16_t methodId)
{
    if (broken)
    {
        ThrowBroken();
    }
    const std::size_t frameSize = FrameHeader::Size + writer.GetSize();
    if (frameSize > maxFrameSize)
    {
        throw CommunicationException(
            "Request of {0} bytes to provider '{1}' exceeds the maximum frame size of {2} bytes", frameSize,
            providerName, maxFrameSize);
    }
    deadline = Clock::now() + callTimeLimit;
    const FrameHeader header{static_cast<std::uint32_t>(frameSize), kind, providerHandle, serviceHandle,
                             methodId};
    const IoResult sent = SendFrame(fd, header, writer.GetData(), writer.GetSize(), deadline);
    if (sent != IoResult::Ok)
    {
        Break(sent == IoResult::TimedOut
                  ? String::Format("the call timed out after {0} ms", callTimeLimit.count())
                  : DescribeFailure(sent, "sending the request"));
        ThrowBroken();
    }
}

FrameHeader TulClient::Impl::Receive()
{
    FrameHeader header;
    IoResult received = ReceiveHeader(fd, header, deadline);
    if (received == IoResult::Ok && header.kind != FrameKind::Response)
    {
        received = IoResult::Malformed;
    }
    const bool tooLarge = received == IoResult::Ok && header.frameSize > maxFrameSize;
    if (tooLarge)
    {
        // Read past it, so that the connection stays in step.
        received = DiscardBytes(fd, header.GetBodySize(), deadline);
    }
    else if (received == IoResult::Ok)
    {
        received = ReceiveBody(fd, body, header.GetBodySize(), deadline);
    }
    if (received != IoResult::Ok)
    {
        Break(received == IoResult::TimedOut
                  ? String::Format("the call timed out after {0} ms", callTimeLimit.count())
                  : DescribeFailure(received, "receiving the response"));
        ThrowBroken();
    }
    if (tooLarge)
    {
        throw CommunicationException(
            "Response of {0} bytes from provider '{1}' exceeds the maximum frame size of {2} bytes",
            header.frameSize, providerName, maxFrameSize);
    }
    return header;
}

std::pair<std::uint16_t, std::uint16_t> TulClient::Impl::Resolve(const String& serviceName)
{
    Lock();
    struct Unlocker
    {
        Impl& impl;
        ~Unlocker() { impl.Unlock(); }
    } unlocker{*this};

    writer.Reset();
    WriteText(writer, providerName);
    WriteText(writer, serviceName);
    Send(FrameKind::Resolve, 0, 0, 0);
    const FrameHeader header = Receive();
    RemotingReader reader(body.data(), body.size());
    if (reader.ReadConfirmation())
    {
        TulExceptionRegistry::Throw(reader);
    }
    return {header.providerHandle, header.serviceHandle};
}

TulClient::TulClient(std::unique_ptr<Impl> impl) : impl(std::move(impl))
{
    ++liveClients;
}

TulClient::~TulClient()
{
    --liveClients;
}

std::size_t Testing::CountClients() noexcept
{
    return liveClients.load();
}

void TulClient::BeginTransaction(ITulServiceProxy&)
{
    impl->Lock();
}

void TulClient::EndTransaction(ITulServiceProxy&)
{
    impl->ExpectOwner("EndTransaction");
    impl->Unlock();
}

unsigned short TulClient::GetServiceHandle(unsigned short providerHandle, const char* serviceName)
{
    if (serviceName == nullptr)
    {
        throw ArgumentException::Create("serviceName", "null", "A service is asked for by its name");
    }
    const auto [provider, service] = impl->Resolve(serviceName);
    if (provider != providerHandle)
    {
        throw InvalidOperationException("Provider '{0}' has handle {1} on this connection, not {2}",
                                        impl->providerName, provider, providerHandle);
    }
    return service;
}

const String& TulClient::GetProviderName() const noexcept
{
    return impl->providerName;
}

bool TulClient::IsBroken() const noexcept
{
    return impl->broken;
}
}  // namespace Kiv::System::Tul
