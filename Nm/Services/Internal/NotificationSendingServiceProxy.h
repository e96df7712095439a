#pragma once

#include <Nm/Services/Internal/INotificationSendingService.h>
#include <Nm/Services/TulServiceProxyBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The caller's end of INotificationSendingService: each operation is one call with its method id, in the
/// order of the interface.
class NotificationSendingServiceProxy : public TulServiceProxyBase<INotificationSendingService>
{
public:
    NotificationSendingServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                    Tul::TulClient& client);

    void RefreshServiceHandle() override;
    std::uint32_t RegisterNotification(const TulString<512>& notificationName,
                                       const TulString<512>& senderName, Severity severity,
                                       std::uint16_t payloadTypeId) override;
    void UnregisterNotification(std::uint32_t notificationNameId) override;
    std::uint64_t SendNotification(std::uint32_t notificationNameId, DateTime timestamp,
                                   const std::vector<TulVariant<512>>& payload) override;
};
}  // namespace Kiv::System::Nm::Services::Internal
