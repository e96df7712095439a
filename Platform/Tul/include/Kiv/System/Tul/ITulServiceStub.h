#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
class TulServerContext;

/// The server end of a service: reads the arguments of one invocation from the context, calls the
/// service and writes the response.
class KIV_API ITulServiceStub
{
public:
    virtual ~ITulServiceStub();
    virtual void Invoke(int methodId, TulServerContext& context) = 0;

protected:
    ITulServiceStub() = default;
    ITulServiceStub(const ITulServiceStub&) = default;
    ITulServiceStub& operator=(const ITulServiceStub&) = default;
};
}  // namespace Kiv::System::Tul
