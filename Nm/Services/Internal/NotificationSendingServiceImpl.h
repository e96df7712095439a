#pragma once

#include <Nm/Services/Internal/INotificationSendingService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class NotificationSendingServiceImpl : public INotificationSendingService
{
public:
    std::uint32_t RegisterNotification(const TulString<512>& notificationName,
                                       const TulString<512>& senderName, Severity severity,
                                       std::uint16_t payloadTypeId) override;
    void UnregisterNotification(std::uint32_t notificationNameId) override;
    std::uint64_t SendNotification(std::uint32_t notificationNameId, DateTime timestamp,
                                   const std::vector<TulVariant<512>>& payload) override;
};
}  // namespace Kiv::System::Nm::Services::Internal
