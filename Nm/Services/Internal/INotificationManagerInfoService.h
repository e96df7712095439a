#pragma once

#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Services/ServiceDescription.h>
#include <Nm/TulString.h>
#include <Nm/TulVariant.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulService.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm::Services::Internal
{
struct NotificationManagerInfoServiceDescription;

/// Queries about names, registrations and payload types, answered by the broker. Ids travel as plain integers
/// and names as fixed strings.
class KIV_API INotificationManagerInfoService : public Tul::ITulService
{
public:
    using Description = NotificationManagerInfoServiceDescription;
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
    /// The names of all payload types in one answer, the one of id 1 first, each as a text value.
    virtual std::vector<TulVariant<512>> GetPayloadTypeNames() = 0;
};

/// Operation(method id, result, name, argument types in wire order), in the order of the interface.
// clang-format off
#define KIV_NM_NOTIFICATION_MANAGER_INFO_SERVICE_OPERATIONS(Operation)                                       \
    Operation(1, TulString<512>, GetNotificationName, std::uint32_t)                                         \
    Operation(2, std::uint32_t, GetNotificationNameId, const TulString<512>&)                                \
    Operation(3, std::vector<std::uint32_t>, GetNotificationNameIdsByStatus, NotificationRegistrationStatus) \
    Operation(4, std::vector<std::uint32_t>, GetAllKnownNotificationNameIds)                                 \
    Operation(5, NotificationRegistrationInfo, GetNotificationRegistration, std::uint32_t)                   \
    Operation(6, std::uint16_t, GetPayloadTypeId, const TulString<512>&)                                     \
    Operation(7, TulString<512>, GetPayloadTypeName, std::uint16_t)                                          \
    Operation(8, std::uint64_t, GetNumberOfSubmittedNotifications)                                           \
    Operation(9, std::vector<TulVariant<512>>, GetPayloadTypeNames)
// clang-format on

struct NotificationManagerInfoServiceDescription : ServiceDescription<INotificationManagerInfoService>
{
    static constexpr const char* serviceName =
        "Kiv.System.Nm.Services.Internal.INotificationManagerInfoService";
    KIV_TUL_OPERATION_TABLE(KIV_NM_NOTIFICATION_MANAGER_INFO_SERVICE_OPERATIONS)
};
}  // namespace Kiv::System::Nm::Services::Internal
