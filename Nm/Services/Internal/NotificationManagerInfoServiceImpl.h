#pragma once

#include <Nm/Services/Internal/INotificationManagerInfoService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class NotificationManagerInfoServiceImpl : public INotificationManagerInfoService
{
public:
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
