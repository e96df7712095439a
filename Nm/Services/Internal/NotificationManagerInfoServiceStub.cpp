#include <Nm/Services/Internal/NotificationManagerInfoServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationManagerInfoServiceStub::NotificationManagerInfoServiceStub(
    NotificationManagerInfoServiceImpl* service)
    : TulServiceStubBase(service)
{
}

void NotificationManagerInfoServiceStub::Invoke(int methodId, Tul::TulServerContext& context)
{
    switch (methodId)
    {
        case 1:
            return GetNotificationName(context);
        case 2:
            return GetNotificationNameId(context);
        case 3:
            return GetNotificationNameIdsByStatus(context);
        case 4:
            return GetAllKnownNotificationNameIds(context);
        case 5:
            return GetNotificationRegistration(context);
        case 6:
            return GetPayloadTypeId(context);
        case 7:
            return GetPayloadTypeName(context);
        case 8:
            return GetNumberOfSubmittedNotifications(context);
        default:
            return RefuseUnknownMethod(context);
    }
}

void NotificationManagerInfoServiceStub::GetNotificationName(Tul::TulServerContext& context)
{
    Serve<TulString<512>, std::uint32_t>(context, [this](std::uint32_t& notificationNameId)
                                         { return service->GetNotificationName(notificationNameId); });
}

void NotificationManagerInfoServiceStub::GetNotificationNameId(Tul::TulServerContext& context)
{
    Serve<std::uint32_t, TulString<512>>(context, [this](TulString<512>& notificationName)
                                         { return service->GetNotificationNameId(notificationName); });
}

void NotificationManagerInfoServiceStub::GetNotificationNameIdsByStatus(Tul::TulServerContext& context)
{
    Serve<std::vector<std::uint32_t>, NotificationRegistrationStatus>(
        context, [this](NotificationRegistrationStatus& status)
        { return service->GetNotificationNameIdsByStatus(status); });
}

void NotificationManagerInfoServiceStub::GetAllKnownNotificationNameIds(Tul::TulServerContext& context)
{
    Serve<std::vector<std::uint32_t>>(context,
                                      [this]() { return service->GetAllKnownNotificationNameIds(); });
}

void NotificationManagerInfoServiceStub::GetNotificationRegistration(Tul::TulServerContext& context)
{
    Serve<NotificationRegistrationInfo, std::uint32_t>(
        context, [this](std::uint32_t& notificationNameId)
        { return service->GetNotificationRegistration(notificationNameId); });
}

void NotificationManagerInfoServiceStub::GetPayloadTypeId(Tul::TulServerContext& context)
{
    Serve<std::uint16_t, TulString<512>>(context, [this](TulString<512>& payloadTypeName)
                                         { return service->GetPayloadTypeId(payloadTypeName); });
}

void NotificationManagerInfoServiceStub::GetPayloadTypeName(Tul::TulServerContext& context)
{
    Serve<TulString<512>, std::uint16_t>(
        context, [this](std::uint16_t& payloadTypeId) { return service->GetPayloadTypeName(payloadTypeId); });
}

void NotificationManagerInfoServiceStub::GetNumberOfSubmittedNotifications(Tul::TulServerContext& context)
{
    Serve<std::uint64_t>(context, [this]() { return service->GetNumberOfSubmittedNotifications(); });
}
}  // namespace Kiv::System::Nm::Services::Internal
