#include <Nm/Services/Internal/NotificationDispatcherManagerServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherManagerServiceStub::NotificationDispatcherManagerServiceStub(
    NotificationDispatcherManagerServiceImpl* service)
    : TulServiceStubBase(service)
{
}

void NotificationDispatcherManagerServiceStub::Invoke(int methodId, Tul::TulServerContext& context)
{
    switch (methodId)
    {
        case 1:
            return RegisterDispatcher(context);
        case 2:
            return UnregisterDispatcher(context);
        case 3:
            return RegisterNotificationDispatch(context);
        case 4:
            return UnregisterNotificationDispatch(context);
        case 5:
            return ContainsNotificationDispatch(context);
        default:
            return RefuseUnknownMethod(context);
    }
}

void NotificationDispatcherManagerServiceStub::RegisterDispatcher(Tul::TulServerContext& context)
{
    Serve<std::uint16_t, TulString<512>>(context, [this](TulString<512>& dispatcherName)
                                         { return service->RegisterDispatcher(dispatcherName); });
}

void NotificationDispatcherManagerServiceStub::UnregisterDispatcher(Tul::TulServerContext& context)
{
    Serve<void, std::uint16_t>(
        context, [this](std::uint16_t& dispatcherId) { return service->UnregisterDispatcher(dispatcherId); });
}

void NotificationDispatcherManagerServiceStub::RegisterNotificationDispatch(Tul::TulServerContext& context)
{
    Serve<void, std::uint32_t, std::uint16_t>(
        context, [this](std::uint32_t& notificationNameId, std::uint16_t& dispatcherId)
        { return service->RegisterNotificationDispatch(notificationNameId, dispatcherId); });
}

void NotificationDispatcherManagerServiceStub::UnregisterNotificationDispatch(Tul::TulServerContext& context)
{
    Serve<void, std::uint32_t, std::uint16_t>(
        context, [this](std::uint32_t& notificationNameId, std::uint16_t& dispatcherId)
        { return service->UnregisterNotificationDispatch(notificationNameId, dispatcherId); });
}

void NotificationDispatcherManagerServiceStub::ContainsNotificationDispatch(Tul::TulServerContext& context)
{
    Serve<bool, std::uint32_t, std::uint16_t>(
        context, [this](std::uint32_t& notificationNameId, std::uint16_t& dispatcherId)
        { return service->ContainsNotificationDispatch(notificationNameId, dispatcherId); });
}
}  // namespace Kiv::System::Nm::Services::Internal
