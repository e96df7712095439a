#pragma once

#include <Nm/Services/INotificationManagerService.h>
#include <Nm/Services/TulServiceProxyBase.h>

namespace Kiv::System::Nm::Services
{
/// The caller's end of INotificationManagerService: each operation is one call with its method id, in the
/// order of the interface.
class NotificationManagerServiceProxy : public TulServiceProxyBase<INotificationManagerService>
{
public:
    NotificationManagerServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                    Tul::TulClient& client);

    void RefreshServiceHandle() override;
    std::uint32_t RegisterNotification(const TulString<512>& notificationName,
                                       const TulString<512>& senderName, Severity severity,
                                       const TulString<512>& payloadTypeName) override;
    void UnregisterNotification(std::uint32_t notificationNameId) override;
    std::uint64_t SendNotification(std::uint32_t notificationNameId, DateTime timestamp,
                                   const std::vector<TulVariant<512>>& payload) override;
    TulString<512> GetNotificationName(std::uint32_t notificationNameId) override;
    std::uint32_t GetNotificationNameId(const TulString<512>& notificationName) override;
    std::vector<std::uint32_t> GetNotificationNameIdsByStatus(NotificationRegistrationStatus status) override;
    std::vector<std::uint32_t> GetAllKnownNotificationNameIds() override;
    NotificationRegistrationInfo GetNotificationRegistration(std::uint32_t notificationNameId) override;
    std::uint16_t GetPayloadTypeId(const TulString<512>& payloadTypeName) override;
    TulString<512> GetPayloadTypeName(std::uint16_t payloadTypeId) override;
    std::uint64_t GetNumberOfSubmittedNotifications() override;
};
}  // namespace Kiv::System::Nm::Services
