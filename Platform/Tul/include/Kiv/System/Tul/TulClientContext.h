#pragma once

#include <Kiv/Export.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/TulClient.h>

#include <cstdint>
#include <optional>

namespace Kiv::System::Tul
{
/// One call on a TulClient, made by a proxy inside the client's transaction: the request is written on
/// GetWriter between BeginServiceInvocationRequest and EndServiceInvocationRequest, which sends it, and
/// the response is read from GetReader between BeginServiceInvocationResponse, which waits for it, and
/// EndServiceInvocationResponse. It holds the transaction that BeginTransaction took, and with it the
/// connection's buffers, so a call allocates nothing beyond their growth; it gives the transaction back
/// for EndTransaction at its end. A call given up after its request was sent breaks the connection, since
/// the late response would be taken for the next call's.
class KIV_API TulClientContext
{
public:
    /// Raises InvalidOperationException unless this thread holds the client's transaction.
    explicit TulClientContext(TulClient& client);
    TulClientContext(const TulClientContext&) = delete;
    TulClientContext& operator=(const TulClientContext&) = delete;
    ~TulClientContext();

    /// Starts the request of method `methodId` of the service `serviceHandle` of `providerHandle`.
    void BeginServiceInvocationRequest(std::uint16_t providerHandle, std::uint16_t serviceHandle,
                                       std::uint16_t methodId);
    /// Sends the request. Raises CommunicationException when it is larger than the maximum frame size
    /// (nothing is sent, the connection stays usable) or when the connection fails.
    void EndServiceInvocationRequest();
    /// Waits for the response, which must carry the same three numbers, within the call time limit, and
    /// reads its confirmation. When the operation failed, raises its exception rebuilt (see
    /// TulExceptionRegistry); a refused request raises CommunicationException naming the error code.
    void BeginServiceInvocationResponse(std::uint16_t providerHandle, std::uint16_t serviceHandle,
                                        std::uint16_t methodId);
    /// Ends the response, which must have been read whole: bytes left unread mean that proxy and stub
    /// disagree, and raise CommunicationException.
    void EndServiceInvocationResponse();

    RemotingWriter& GetWriter();
    /// Raises InvalidOperationException before BeginServiceInvocationResponse.
    RemotingReader& GetReader();

private:
    enum class State
    {
        Idle,
        Writing,
        Sent,
        Received,
        Done
    };

    void ExpectState(State expected, const char* operation) const;

    TulClient& client;
    TulClient::Transaction transaction;
    State state = State::Idle;
    std::uint16_t providerHandle = 0;
    std::uint16_t serviceHandle = 0;
    std::uint16_t methodId = 0;
    std::optional<RemotingReader> reader;
};
}  // namespace Kiv::System::Tul
