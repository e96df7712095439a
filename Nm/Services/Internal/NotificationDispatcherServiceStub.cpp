#include <Nm/Services/Internal/NotificationDispatcherServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherServiceStub::NotificationDispatcherServiceStub(
    NotificationDispatcherServiceImpl* service)
    : TulServiceStubBase(service)
{
}

void NotificationDispatcherServiceStub::Invoke(int methodId, Tul::TulServerContext& context)
{
    switch (methodId)
    {
        case 1:
            return Dispatch(context);
        default:
            return RefuseUnknownMethod(context);
    }
}

void NotificationDispatcherServiceStub::Dispatch(Tul::TulServerContext& context)
{
    Serve<void, Notification, std::vector<std::uint32_t>>(
        context, [this](Notification& notification, std::vector<std::uint32_t>& nameIds)
        { return service->Dispatch(notification, nameIds); });
}
}  // namespace Kiv::System::Nm::Services::Internal
