#pragma once

#include <Nm/Internal/NonBlockingNotificationSending/IFunctionCall.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// What a fresh slot of the ring buffer holds: no Future, and running it does nothing.
class KIV_API EmptyFunctionCall final : public IFunctionCall
{
public:
    EmptyFunctionCall() = default;
    EmptyFunctionCall(EmptyFunctionCall&&) noexcept = default;
    EmptyFunctionCall& operator=(EmptyFunctionCall&&) noexcept = default;
    ~EmptyFunctionCall() override = default;

    void Execute(INotificationSending&) const override {}
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
