#include <Nm/Services/Internal/NotificationManagerInfoServiceProxy.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationManagerInfoServiceProxy::NotificationManagerInfoServiceProxy(unsigned short providerHandle,
                                                                         unsigned short serviceHandle,
                                                                         Tul::TulClient& client)
    : TulServiceProxyBase(providerHandle, serviceHandle, client)
{
}

void NotificationManagerInfoServiceProxy::RefreshServiceHandle()
{
    RefreshServiceHandleOf(NotificationManagerInfoServiceProxyFactory::GetInstance().GetServiceName());
}

TulString<512> NotificationManagerInfoServiceProxy::GetNotificationName(std::uint32_t notificationNameId)
{
    return Call<TulString<512>>(1, notificationNameId);
}

std::uint32_t NotificationManagerInfoServiceProxy::GetNotificationNameId(
    const TulString<512>& notificationName)
{
    return Call<std::uint32_t>(2, notificationName);
}

std::vector<std::uint32_t> NotificationManagerInfoServiceProxy::GetNotificationNameIdsByStatus(
    NotificationRegistrationStatus status)
{
    return Call<std::vector<std::uint32_t>>(3, status);
}

std::vector<std::uint32_t> NotificationManagerInfoServiceProxy::GetAllKnownNotificationNameIds()
{
    return Call<std::vector<std::uint32_t>>(4);
}

NotificationRegistrationInfo NotificationManagerInfoServiceProxy::GetNotificationRegistration(
    std::uint32_t notificationNameId)
{
    return Call<NotificationRegistrationInfo>(5, notificationNameId);
}

std::uint16_t NotificationManagerInfoServiceProxy::GetPayloadTypeId(const TulString<512>& payloadTypeName)
{
    return Call<std::uint16_t>(6, payloadTypeName);
}

TulString<512> NotificationManagerInfoServiceProxy::GetPayloadTypeName(std::uint16_t payloadTypeId)
{
    return Call<TulString<512>>(7, payloadTypeId);
}

std::uint64_t NotificationManagerInfoServiceProxy::GetNumberOfSubmittedNotifications()
{
    return Call<std::uint64_t>(8);
}
}  // namespace Kiv::System::Nm::Services::Internal
