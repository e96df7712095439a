#pragma once

#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Services/ServiceDescription.h>
#include <Nm/Severity.h>
#include <Nm/TulString.h>
#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulService.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm::Services
{
struct NotificationManagerServiceDescription;

/// The one service for clients outside the library: sending and queries in one, every operation guarded. Ids
/// travel as plain integers and names as fixed strings.
class KIV_API INotificationManagerService : public Tul::ITulService
{
public:
    using Description = NotificationManagerServiceDescription;
    ~INotificationManagerService() override;

    virtual std::uint32_t RegisterNotification(const TulString<512>& notificationName,
                                               const TulString<512>& senderName, Severity severity,
                                               const TulString<512>& payloadTypeName) = 0;
    virtual void UnregisterNotification(std::uint32_t notificationNameId) = 0;
    virtual std::uint64_t SendNotification(std::uint32_t notificationNameId, DateTime timestamp,
                                           const std::vector<TulVariant<512>>& payload) = 0;
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

/// Operation(method id, result, name, argument types in wire order), in the order of the interface. The
/// ids differ from those of the internal services for the same operations.
// clang-format off
#define KIV_NM_NOTIFICATION_MANAGER_SERVICE_OPERATIONS(Operation)                                            \
    Operation(1, std::uint32_t, RegisterNotification,                                                        \
              const TulString<512>&, const TulString<512>&, Severity, const TulString<512>&)                 \
    Operation(2, void, UnregisterNotification, std::uint32_t)                                                \
    Operation(3, std::uint64_t, SendNotification,                                                            \
              std::uint32_t, DateTime, const std::vector<TulVariant<512>>&)                                  \
    Operation(4, TulString<512>, GetNotificationName, std::uint32_t)                                         \
    Operation(5, std::uint32_t, GetNotificationNameId, const TulString<512>&)                                \
    Operation(6, std::vector<std::uint32_t>, GetNotificationNameIdsByStatus, NotificationRegistrationStatus) \
    Operation(7, std::vector<std::uint32_t>, GetAllKnownNotificationNameIds)                                 \
    Operation(8, NotificationRegistrationInfo, GetNotificationRegistration, std::uint32_t)                   \
    Operation(9, std::uint16_t, GetPayloadTypeId, const TulString<512>&)                                     \
    Operation(10, TulString<512>, GetPayloadTypeName, std::uint16_t)                                         \
    Operation(11, std::uint64_t, GetNumberOfSubmittedNotifications)
// clang-format on

/// The only guarded service: every call passes the security stub.
struct NotificationManagerServiceDescription : ServiceDescription<INotificationManagerService>
{
    static constexpr const char* serviceName = "Kiv.System.Nm.Services.INotificationManagerService";
    static constexpr bool guarded = true;
    KIV_TUL_OPERATION_TABLE(KIV_NM_NOTIFICATION_MANAGER_SERVICE_OPERATIONS)
};
}  // namespace Kiv::System::Nm::Services
