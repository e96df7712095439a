#pragma once

#include <Nm/Notification.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/Wire.h>

#include <Kiv/System/Tul/ITulServiceStub.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/TulErrors.h>
#include <Kiv/System/Tul/TulServerContext.h>

#include <memory>
#include <tuple>
#include <type_traits>

namespace Kiv::System::Nm::Services
{
/// The server end of a service: owns the service object (its Impl, or the security stub in front of it)
/// and turns one invocation into one call of it. Catches nothing: a failure leaves Invoke before the
/// confirmation, and the platform carries it to the caller.
template <class TImpl>
class TulServiceStubBase : public Tul::ITulServiceStub
{
public:
    explicit TulServiceStubBase(TImpl* service) : service(service) {}
    ~TulServiceStubBase() override = default;

protected:
    /// Reads arguments of the given types in order, calls `operation` with them, confirms, and writes the
    /// result, if any.
    template <class TResult, class... TArguments, class TOperation>
    static void Serve(Tul::TulServerContext& context, TOperation&& operation)
    {
        std::tuple<TArguments...> arguments;
        std::apply([&context](auto&... argument) { (Wire::Read(context.GetReader(), argument), ...); },
                   arguments);
        if constexpr (std::is_void_v<TResult>)
        {
            std::apply(operation, arguments);
            context.GetWriter().WriteConfirmation(false);
        }
        else
        {
            const TResult result = std::apply(operation, arguments);
            context.GetWriter().WriteConfirmation(false);
            Wire::Write(context.GetWriter(), result);
        }
    }

    /// The answer to a method id that the service doesn't have.
    static void RefuseUnknownMethod(Tul::TulServerContext& context)
    {
        context.AbortRequest(Tul::TulErrors::UnknownMethod, nullptr);
    }

    std::unique_ptr<TImpl> service;
};
}  // namespace Kiv::System::Nm::Services
