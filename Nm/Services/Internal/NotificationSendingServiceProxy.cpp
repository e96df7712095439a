#include <Nm/Services/Internal/NotificationSendingServiceProxy.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationSendingServiceProxy::NotificationSendingServiceProxy(unsigned short providerHandle,
                                                                 unsigned short serviceHandle,
                                                                 Tul::TulClient& client)
    : TulServiceProxyBase(providerHandle, serviceHandle, client)
{
}

void NotificationSendingServiceProxy::RefreshServiceHandle()
{
    RefreshServiceHandleOf(NotificationSendingServiceProxyFactory::GetInstance().GetServiceName());
}

std::uint32_t NotificationSendingServiceProxy::RegisterNotification(const TulString<512>& notificationName,
                                                                    const TulString<512>& senderName,
                                                                    Severity severity,
                                                                    std::uint16_t payloadTypeId)
{
    return Call<std::uint32_t>(1, notificationName, senderName, severity, payloadTypeId);
}

void NotificationSendingServiceProxy::UnregisterNotification(std::uint32_t notificationNameId)
{
    return Call<void>(2, notificationNameId);
}

std::uint64_t NotificationSendingServiceProxy::SendNotification(std::uint32_t notificationNameId,
                                                                DateTime timestamp,
                                                                const std::vector<TulVariant<512>>& payload)
{
    return Call<std::uint64_t>(3, notificationNameId, timestamp, payload);
}
}  // namespace Kiv::System::Nm::Services::Internal
