#include <Nm/Services/NotificationManagerServiceProxy.h>
#include <Nm/Services/NotificationManagerServiceProxyFactory.h>

namespace Kiv::System::Nm::Services
{
NotificationManagerServiceProxy::NotificationManagerServiceProxy(unsigned short providerHandle,
                                                                 unsigned short serviceHandle,
                                                                 Tul::TulClient& client)
    : TulServiceProxyBase(providerHandle, serviceHandle, client)
{
}

void NotificationManagerServiceProxy::RefreshServiceHandle()
{
    RefreshServiceHandleOf(NotificationManagerServiceProxyFactory::GetInstance().GetServiceName());
}

std::uint32_t NotificationManagerServiceProxy::RegisterNotification(const TulString<512>& notificationName,
                                                                    const TulString<512>& senderName,
                                                                    Severity severity,
                                                                    const TulString<512>& payloadTypeName)
{
    return Call<std::uint32_t>(1, notificationName, senderName, severity, payloadTypeName);
}

void NotificationManagerServiceProxy::UnregisterNotification(std::uint32_t notificationNameId)
{
    return Call<void>(2, notificationNameId);
}

std::uint64_t NotificationManagerServiceProxy::SendNotification(std::uint32_t notificationNameId,
                                                                DateTime timestamp,
                                                                const std::vector<TulVariant<512>>& payload)
{
    return Call<std::uint64_t>(3, notificationNameId, timestamp, payload);
}

TulString<512> NotificationManagerServiceProxy::GetNotificationName(std::uint32_t notificationNameId)
{
    return Call<TulString<512>>(4, notificationNameId);
}

std::uint32_t NotificationManagerServiceProxy::GetNotificationNameId(const TulString<512>& notificationName)
{
    return Call<std::uint32_t>(5, notificationName);
}

std::vector<std::uint32_t> NotificationManagerServiceProxy::GetNotificationNameIdsByStatus(
    NotificationRegistrationStatus status)
{
    return Call<std::vector<std::uint32_t>>(6, status);
}

std::vector<std::uint32_t> NotificationManagerServiceProxy::GetAllKnownNotificationNameIds()
{
    return Call<std::vector<std::uint32_t>>(7);
}

NotificationRegistrationInfo NotificationManagerServiceProxy::GetNotificationRegistration(
    std::uint32_t notificationNameId)
{
    return Call<NotificationRegistrationInfo>(8, notificationNameId);
}

std::uint16_t NotificationManagerServiceProxy::GetPayloadTypeId(const TulString<512>& payloadTypeName)
{
    return Call<std::uint16_t>(9, payloadTypeName);
}

TulString<512> NotificationManagerServiceProxy::GetPayloadTypeName(std::uint16_t payloadTypeId)
{
    return Call<TulString<512>>(10, payloadTypeId);
}

std::uint64_t NotificationManagerServiceProxy::GetNumberOfSubmittedNotifications()
{
    return Call<std::uint64_t>(11);
}
}  // namespace Kiv::System::Nm::Services
