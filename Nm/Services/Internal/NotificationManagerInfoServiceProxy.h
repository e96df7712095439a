#pragma once

#include <Nm/Services/Internal/INotificationManagerInfoService.h>
#include <Nm/Services/TulServiceProxyBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The caller's end of INotificationManagerInfoService: each operation is one call with its method id, in the
/// order of the interface.
class NotificationManagerInfoServiceProxy : public TulServiceProxyBase<INotificationManagerInfoService>
{
public:
    NotificationManagerInfoServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                        Tul::TulClient& client);

    void RefreshServiceHandle() override;
    TulString<512> GetNotificationName(std::uint32_t notificationNameId) override;
    std::uint32_t GetNotificationNameId(const TulString<512>& notificationName) override;
    std::vector<std::uint32_t> GetNotificationNameIdsByStatus(NotificationRegistrationStatus status) override;
    std::vector<std::uint32_t> GetAllKnownNotificationNameIds() override;
    NotificationRegistrationInfo GetNotificationRegistration(std::uint32_t notificationNameId) override;
    std::uint16_t GetPayloadTypeId(const TulString<512>& payloadTypeName) override;
    TulString<512> GetPayloadTypeName(std::uint16_t payloadTypeId) override;
    std::uint64_t GetNumberOfSubmittedNotifications() override;
};
}  // namespace Kiv::System::Nm::Services::Internal
