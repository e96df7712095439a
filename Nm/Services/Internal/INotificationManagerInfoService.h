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
/// Queries about names, registrations and payload types, answered by the broker. Ids travel as plain integers
/// and names as fixed strings.
class KIV_API INotificationManagerInfoService : public Tul::ITulService
{
public:
    ~INotificationManagerInfoService() override;

    virtual TulString<512> GetNotificationName(std::uint32_t notificationNameId) = 0;
    virtual std::uint32_t GetNotificationNameId(const TulString<512>& notificationName) = 0;
    virtual std::vector<std::uint32_t> GetNotificationNameIdsByStatus(
        NotificationRegistrationStatus status) = 0;
    virtual std::vector<std::uint32_t> GetAllKnownNotificationNameIds() = 0;
    virtual NotificationRegistrationInfo GetNotificationRegistration(std::uint32_t notificationNameId) = 0;
    virtual std::uint16_t GetPayloadTypeId(const TulString<512>& payloadTypeName) = 0;
    virtual TulString<512> GetPayloadTypeName(std::uint16_t payloadTypeId) = 0;
    virtual std::uint64_t GetNumberOfSubmittedNotifications() = 0;
};
}  // namespace Kiv::System::Nm::Services::Internal
