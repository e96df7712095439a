#pragma once

#include <Nm/Notification.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/Wire.h>

#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/TulClient.h>
#include <Kiv/System/Tul/TulClientContext.h>

#include <type_traits>

namespace Kiv::System::Nm::Services
{
template <class T>
template <class TResult, class... TArguments>
TResult TulServiceProxyBase<T>::Call(std::uint16_t methodId, const TArguments&... arguments)
{
    client.BeginTransaction(*this);
    try
    {
        if constexpr (std::is_void_v<TResult>)
        {
            Exchange<void>(methodId, arguments...);
            client.EndTransaction(*this);
        }
        else
        {
            TResult result = Exchange<TResult>(methodId, arguments...);
            client.EndTransaction(*this);
            return result;
        }
    }
    catch (...)
    {
        client.EndTransaction(*this);
        throw;
    }
}

template <class T>
template <class TResult, class... TArguments>
TResult TulServiceProxyBase<T>::Exchange(std::uint16_t methodId, const TArguments&... arguments)
{
    // The context lives inside the transaction: it is gone before EndTransaction, whatever happens.
    Tul::TulClientContext context(client);
    context.BeginServiceInvocationRequest(providerHandle, serviceHandle, methodId);
    (Wire::Write(context.GetWriter(), arguments), ...);
    context.EndServiceInvocationRequest();
    context.BeginServiceInvocationResponse(providerHandle, serviceHandle, methodId);
    if constexpr (std::is_void_v<TResult>)
    {
        context.EndServiceInvocationResponse();
    }
    else
    {
        TResult result{};
        Wire::Read(context.GetReader(), result);
        context.EndServiceInvocationResponse();
        return result;
    }
}

template <class T>
void TulServiceProxyBase<T>::RefreshServiceHandleOf(const char* serviceName)
{
    serviceHandle = client.GetServiceHandle(providerHandle, serviceName);
}
}  // namespace Kiv::System::Nm::Services
