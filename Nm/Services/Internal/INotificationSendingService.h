#pragma once

#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Severity.h>
#include <Nm/TulString.h>
#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulService.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm::Services::Internal
{
/// Registering names and sending notifications at the broker. Ids travel as plain integers and names as fixed
/// strings.
class KIV_API INotificationSendingService : public Tul::ITulService
{
public:
    ~INotificationSendingService() override;

    virtual std::uint32_t RegisterNotification(const TulString<512>& notificationName,
                                               const TulString<512>& senderName, Severity severity,
                                               std::uint16_t payloadTypeId) = 0;
    virtual void UnregisterNotification(std::uint32_t notificationNameId) = 0;
    virtual std::uint64_t SendNotification(std::uint32_t notificationNameId, DateTime timestamp,
                                           const std::vector<TulVariant<512>>& payload) = 0;
};
}  // namespace Kiv::System::Nm::Services::Internal
