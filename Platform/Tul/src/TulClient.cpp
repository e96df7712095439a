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
    parked.reset();
    CloseSocket();
}

TulClient::Transaction TulClient::Impl::Take()
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
    Transaction transaction(*this, std::move(spareWriter), std::move(spareBody));
    if (broken)
    {
        ThrowBroken();
    }
    return transaction;
}

void TulClient::Impl::Park(Transaction transaction) noexcept
{
    parked.emplace(std::move(transaction));
}

TulClient::Transaction TulClient::Impl::Unpark(const char* operation)
{
    if (owner.load() != std::this_thread::get_id() || !parked)
    {
        throw InvalidOperationException("{0} needs the transaction of the connection to provider '{1}'",
                                        operation, providerName);
    }
    Transaction transaction = std::move(*parked);
    parked.reset();
    return transaction;
}

void TulClient::Impl::GiveBack(RemotingWriter writer, std::vector<std::uint8_t> body) noexcept
{
    owner = std::thread::id();
    if (broken)
    {
        CloseSocket();
    }
    else
    {
        spareWriter = std::move(writer);
        spareBody = std::move(body);
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
        spareWriter = RemotingWriter();
        spareBody = std::vector<std::uint8_t>();
        reader = Internal::FrameReader();
    }
}

void TulClient::Impl::CloseSocket() noexcept
{
    std::lock_guard<std::mutex> lock(stateMutex);
    if (fd >= 0)
    {
        close(fd);
        fd = -1;
    }
}

void TulClient::Impl::Send(FrameKind kind, std::uint16_t providerHandle, std::uint16_t serviceHandle,
                           std::uint16_t methodId, const RemotingWriter& writer)
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

FrameHeader TulClient::Impl::Receive(std::vector<std::uint8_t>& body)
{
    FrameHeader header;
    IoResult received = reader.ReceiveHeader(fd, header, deadline);
    if (received == IoResult::Ok && header.kind != FrameKind::Response)
    {
        received = IoResult::Malformed;
    }
    const bool tooLarge = received == IoResult::Ok && header.frameSize > maxFrameSize;
    if (tooLarge)
    {
        // Read past it, so that the connection stays in step.
        received = reader.DiscardBytes(fd, header.GetBodySize(), deadline);
    }
    else if (received == IoResult::Ok)
    {
        received = reader.ReceiveBody(fd, body, header.GetBodySize(), deadline);
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

TulClient::Transaction::Transaction(Impl& impl, RemotingWriter writer,
                                    std::vector<std::uint8_t> body) noexcept
    : impl(&impl), writer(std::move(writer)), body(std::move(body))
{
}

TulClient::Transaction::Transaction(Transaction&& other) noexcept
    : impl(std::exchange(other.impl, nullptr)), writer(std::move(other.writer)), body(std::move(other.body))
{
}

TulClient::Transaction& TulClient::Transaction::operator=(Transaction&& other) noexcept
{
    if (this != &other)
    {
        GiveBack();
        impl = std::exchange(other.impl, nullptr);
        writer = std::move(other.writer);
        body = std::move(other.body);
    }
    return *this;
}

TulClient::Transaction::~Transaction()
{
    GiveBack();
}

void TulClient::Transaction::GiveBack() noexcept
{
    if (impl != nullptr)
    {
        std::exchange(impl, nullptr)->GiveBack(std::move(writer), std::move(body));
    }
}

TulClient::Impl& TulClient::Transaction::GetConnection() const
{
    if (impl == nullptr)
    {
        throw InvalidOperationException("The transaction was handed on and holds no connection");
    }
    return *impl;
}

RemotingWriter& TulClient::Transaction::StartRequest()
{
    if (GetConnection().IsBroken())
    {
        impl->ThrowBroken();
    }
    writer.Reset();
    return writer;
}

RemotingWriter& TulClient::Transaction::GetWriter()
{
    GetConnection();
    return writer;
}

void TulClient::Transaction::SendRequest(std::uint16_t providerHandle, std::uint16_t serviceHandle,
                                         std::uint16_t methodId)
{
    GetConnection().Send(FrameKind::Invoke, providerHandle, serviceHandle, methodId, writer);
}

TulClient::Transaction::Numbers TulClient::Transaction::ReceiveResponse()
{
    const FrameHeader header = GetConnection().Receive(body);
    return {header.providerHandle, header.serviceHandle, header.methodId};
}

const std::vector<std::uint8_t>& TulClient::Transaction::GetBody() const
{
    GetConnection();
    return body;
}

std::pair<std::uint16_t, std::uint16_t> TulClient::Transaction::Resolve(const String& serviceName)
{
    Impl& connection = GetConnection();
    writer.Reset();
    WriteText(writer, connection.providerName);
    WriteText(writer, serviceName);
    connection.Send(FrameKind::Resolve, 0, 0, 0, writer);
    const FrameHeader header = connection.Receive(body);
    RemotingReader reader(body.data(), body.size());
    if (reader.ReadConfirmation())
    {
        TulExceptionRegistry::Throw(reader);
    }
    return {header.providerHandle, header.serviceHandle};
}

void TulClient::Transaction::Break(const String& reason)
{
    GetConnection().Break(reason);
}

void TulClient::Transaction::ThrowBroken() const
{
    GetConnection().ThrowBroken();
}

const String& TulClient::Transaction::GetProviderName() const
{
    return GetConnection().providerName;
}

TulClient::TulClient(std::unique_ptr<Impl> impl) : impl(std::move(impl))
{
    ++liveClients;
}

TulClient::~TulClient()
{
    --liveClients;
}

void TulClient::BeginTransaction(ITulServiceProxy&)
{
    impl->Park(impl->Take());
}

void TulClient::EndTransaction(ITulServiceProxy&)
{
    impl->Unpark("EndTransaction");
}

unsigned short TulClient::GetServiceHandle(unsigned short providerHandle, const char* serviceName)
{
    if (serviceName == nullptr)
    {
        throw ArgumentException::Create("serviceName", "null", "A service is asked for by its name");
    }
    const auto [provider, service] = impl->Take().Resolve(serviceName);
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
    return impl->IsBroken();
}

std::size_t Testing::CountClients() noexcept
{
    return liveClients.load();
}

TulClient::Transaction Testing::TakeTransaction(TulClient& client)
{
    return TulClientAccess::Get(client).Take();
}
}  // namespace Kiv::System::Tul
