#include <Nm/Services/NotificationManagerServiceStub.h>

namespace Kiv::System::Nm::Services
{
NotificationManagerServiceStub::NotificationManagerServiceStub(NotificationManagerServiceImpl* service)
    : TulServiceStubBase(service)
{
}

void NotificationManagerServiceStub::Invoke(int methodId, Tul::TulServerContext& context)
{
    switch (methodId)
    {
        case 1:
            return RegisterNotification(context);
        case 2:
            return UnregisterNotification(context);
        case 3:
            return SendNotification(context);
        case 4:
            return GetNotificationName(context);
        case 5:
            return GetNotificationNameId(context);
        case 6:
            return GetNotificationNameIdsByStatus(context);
        case 7:
            return GetAllKnownNotificationNameIds(context);
        case 8:
            return GetNotificationRegistration(context);
        case 9:
            return GetPayloadTypeId(context);
        case 10:
            return GetPayloadTypeName(context);
        case 11:
            return GetNumberOfSubmittedNotifications(context);
        default:
            return RefuseUnknownMethod(context);
    }
}

void NotificationManagerServiceStub::RegisterNotification(Tul::TulServerContext& context)
{
    Serve<std::uint32_t, TulString<512>, TulString<512>, Severity, TulString<512>>(
        context, [this](TulString<512>& notificationName, TulString<512>& senderName, Severity& severity,
                        TulString<512>& payloadTypeName)
        { return service->RegisterNotification(notificationName, senderName, severity, payloadTypeName); });
}

void NotificationManagerServiceStub::UnregisterNotification(Tul::TulServerContext& context)
{
    Serve<void, std::uint32_t>(context, [this](std::uint32_t& notificationNameId)
                               { return service->UnregisterNotification(notificationNameId); });
}

void NotificationManagerServiceStub::SendNotification(Tul::TulServerContext& context)
{
    Serve<std::uint64_t, std::uint32_t, DateTime, std::vector<TulVariant<512>>>(
        context,
        [this](std::uint32_t& notificationNameId, DateTime& timestamp, std::vector<TulVariant<512>>& payload)
        { return service->SendNotification(notificationNameId, timestamp, payload); });
}

void NotificationManagerServiceStub::GetNotificationName(Tul::TulServerContext& context)
{
    Serve<TulString<512>, std::uint32_t>(context, [this](std::uint32_t& notificationNameId)
                                         { return service->GetNotificationName(notificationNameId); });
}

void NotificationManagerServiceStub::GetNotificationNameId(Tul::TulServerContext& context)
{
    Serve<std::uint32_t, TulString<512>>(context, [this](TulString<512>& notificationName)
                                         { return service->GetNotificationNameId(notificationName); });
}

void NotificationManagerServiceStub::GetNotificationNameIdsByStatus(Tul::TulServerContext& context)
{
    Serve<std::vector<std::uint32_t>, NotificationRegistrationStatus>(
        context, [this](NotificationRegistrationStatus& status)
        { return service->GetNotificationNameIdsByStatus(status); });
}

void NotificationManagerServiceStub::GetAllKnownNotificationNameIds(Tul::TulServerContext& context)
{
    Serve<std::vector<std::uint32_t>>(context,
                                      [this]() { return service->GetAllKnownNotificationNameIds(); });
}

void NotificationManagerServiceStub::GetNotificationRegistration(Tul::TulServerContext& context)
{
    Serve<NotificationRegistrationInfo, std::uint32_t>(
        context, [this](std::uint32_t& notificationNameId)
        { return service->GetNotificationRegistration(notificationNameId); });
}

void NotificationManagerServiceStub::GetPayloadTypeId(Tul::TulServerContext& context)
{
    Serve<std::uint16_t, TulString<512>>(context, [this](TulString<512>& payloadTypeName)
                                         { return service->GetPayloadTypeId(payloadTypeName); });
}

void NotificationManagerServiceStub::GetPayloadTypeName(Tul::TulServerContext& context)
{
    Serve<TulString<512>, std::uint16_t>(
        context, [this](std::uint16_t& payloadTypeId) { return service->GetPayloadTypeName(payloadTypeId); });
}

void NotificationManagerServiceStub::GetNumberOfSubmittedNotifications(Tul::TulServerContext& context)
{
    Serve<std::uint64_t>(context, [this]() { return service->GetNumberOfSubmittedNotifications(); });
}
}  // namespace Kiv::System::Nm::Services
