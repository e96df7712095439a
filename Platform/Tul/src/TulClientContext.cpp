#include "TulClientImpl.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/TulClientContext.h>
#include <Kiv/System/Tul/TulExceptionRegistry.h>

namespace Kiv::System::Tul
{
using namespace Internal;

TulClientContext::TulClientContext(TulClient& client)
    : client(client), transaction(TulClientAccess::Get(client).Unpark("TulClientContext"))
{
}

TulClientContext::~TulClientContext()
{
    if (state == State::Sent)
    {
        transaction.Break("a call was given up before its response arrived");
    }
    TulClientAccess::Get(client).Park(std::move(transaction));
}

void TulClientContext::ExpectState(State expected, const char* operation) const
{
    if (state != expected)
    {
        throw InvalidOperationException("TulClientContext::{0} called out of order", operation);
    }
}

void TulClientContext::BeginServiceInvocationRequest(std::uint16_t provider, std::uint16_t service,
                                                     std::uint16_t method)
{
    ExpectState(State::Idle, "BeginServiceInvocationRequest");
    transaction.StartRequest();
    providerHandle = provider;
    serviceHandle = service;
    methodId = method;
    state = State::Writing;
}

void TulClientContext::EndServiceInvocationRequest()
{
    ExpectState(State::Writing, "EndServiceInvocationRequest");
    transaction.SendRequest(providerHandle, serviceHandle, methodId);
    state = State::Sent;
}

void TulClientContext::BeginServiceInvocationResponse(std::uint16_t provider, std::uint16_t service,
                                                      std::uint16_t method)
{
    ExpectState(State::Sent, "BeginServiceInvocationResponse");
    TulClient::Transaction::Numbers response;
    try
    {
        response = transaction.ReceiveResponse();
    }
    catch (...)
    {
        // Either the connection is broken now, or an oversized response was read past and it is in step.
        state = State::Received;
        throw;
    }
    state = State::Received;
    if (response.providerHandle != provider || response.serviceHandle != service ||
        response.methodId != method)
    {
        transaction.Break(String::Format("a response for {0}/{1}/{2} arrived for a call of {3}/{4}/{5}",
                                         response.providerHandle, response.serviceHandle, response.methodId,
                                         provider, service, method));
        transaction.ThrowBroken();
    }
    const std::vector<std::uint8_t>& body = transaction.GetBody();
    reader.emplace(body.data(), body.size());
    if (reader->ReadConfirmation())
    {
        TulExceptionRegistry::Throw(*reader);
    }
}

void TulClientContext::EndServiceInvocationResponse()
{
    ExpectState(State::Received, "EndServiceInvocationResponse");
    if (!reader->IsAtEnd())
    {
        throw CommunicationException(
            "The response of method {0} from provider '{1}' has {2} bytes left unread", methodId,
            client.GetProviderName(), reader->GetRemaining());
    }
    state = State::Done;
}

RemotingWriter& TulClientContext::GetWriter()
{
    return transaction.GetWriter();
}

RemotingReader& TulClientContext::GetReader()
{
    if (!reader)
    {
        throw InvalidOperationException("TulClientContext::GetReader before BeginServiceInvocationResponse");
    }
    return *reader;
}
}  // namespace Kiv::System::Tul
