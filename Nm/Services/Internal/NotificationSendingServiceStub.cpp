#include <Nm/Services/Internal/NotificationSendingServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationSendingServiceStub::NotificationSendingServiceStub(NotificationSendingServiceImpl* service)
    : TulServiceStubBase(service)
{
}

void NotificationSendingServiceStub::Invoke(int methodId, Tul::TulServerContext& context)
{
    switch (methodId)
    {
        case 1:
            return RegisterNotification(context);
        case 2:
            return UnregisterNotification(context);
        case 3:
            return SendNotification(context);
        default:
            return RefuseUnknownMethod(context);
    }
}

void NotificationSendingServiceStub::RegisterNotification(Tul::TulServerContext& context)
{
    Serve<std::uint32_t, TulString<512>, TulString<512>, Severity, std::uint16_t>(
        context, [this](TulString<512>& notificationName, TulString<512>& senderName, Severity& severity,
                        std::uint16_t& payloadTypeId)
        { return service->RegisterNotification(notificationName, senderName, severity, payloadTypeId); });
}

void NotificationSendingServiceStub::UnregisterNotification(Tul::TulServerContext& context)
{
    Serve<void, std::uint32_t>(context, [this](std::uint32_t& notificationNameId)
                               { return service->UnregisterNotification(notificationNameId); });
}

void NotificationSendingServiceStub::SendNotification(Tul::TulServerContext& context)
{
    Serve<std::uint64_t, std::uint32_t, DateTime, std::vector<TulVariant<512>>>(
        context,
        [this](std::uint32_t& notificationNameId, DateTime& timestamp, std::vector<TulVariant<512>>& payload)
        { return service->SendNotification(notificationNameId, timestamp, payload); });
}
}  // namespace Kiv::System::Nm::Services::Internal
