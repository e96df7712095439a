#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Nm
{
class INotificationSending;
}

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// A request of the non-blocking path as a value: what to call on INotificationSending, with which
/// arguments, and where the result goes. Records are built on the caller's thread and then only moved,
/// never copied, so that the string and vector inside are not copied again after the first time.
class KIV_API IFunctionCall
{
public:
    virtual ~IFunctionCall() = default;

    /// Runs the request; only the worker thread calls it, at most once per record.
    virtual void Execute(INotificationSending& sending) const = 0;

protected:
    IFunctionCall() = default;
    IFunctionCall(const IFunctionCall&) = delete;
    IFunctionCall(IFunctionCall&&) noexcept = default;
    IFunctionCall& operator=(const IFunctionCall&) = delete;
    IFunctionCall& operator=(IFunctionCall&&) noexcept = default;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
