#pragma once

#include <Nm/Internal/NotificationSendBatch.h>
#include <Nm/Services/ServiceDescription.h>
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
struct NotificationSendingServiceDescription;

/// Registering names and sending notifications at the broker. Ids travel as plain integers and names as fixed
/// strings.
class KIV_API INotificationSendingService : public Tul::ITulService
{
public:
    using Description = NotificationSendingServiceDescription;
    ~INotificationSendingService() override;

    virtual std::uint32_t RegisterNotification(const TulString<512>& notificationName,
                                               const TulString<512>& senderName, Severity severity,
                                               std::uint16_t payloadTypeId) = 0;
    virtual void UnregisterNotification(std::uint32_t notificationNameId) = 0;
    /// A served request's payload goes on into the notification without a copy.
    virtual std::uint64_t SendNotification(std::uint32_t notificationNameId, DateTime timestamp,
                                           PayloadArgument payload) = 0;
    /// Sends the notifications in order in one call, up to the first that the broker does not take.
    virtual ::Kiv::System::Nm::Internal::NotificationBatchAnswer SendNotifications(
        const std::vector<::Kiv::System::Nm::Internal::BatchedNotification>& batch) = 0;
};

/// Operation(method id, result, name, argument types in wire order), in the order of the interface.
// clang-format off
#define KIV_NM_NOTIFICATION_SENDING_SERVICE_OPERATIONS(Operation)                    \
    Operation(1, std::uint32_t, RegisterNotification,                                \
              const TulString<512>&, const TulString<512>&, Severity, std::uint16_t) \
    Operation(2, void, UnregisterNotification, std::uint32_t)                        \
    Operation(3, std::uint64_t, SendNotification,                                    \
              std::uint32_t, DateTime, PayloadArgument)                                 \
    Operation(4, ::Kiv::System::Nm::Internal::NotificationBatchAnswer, SendNotifications,           \
              const std::vector<::Kiv::System::Nm::Internal::BatchedNotification>&)
// clang-format on

struct NotificationSendingServiceDescription : ServiceDescription<INotificationSendingService>
{
    static constexpr const char* serviceName = "Kiv.System.Nm.Services.Internal.INotificationSendingService";
    KIV_TUL_OPERATION_TABLE(KIV_NM_NOTIFICATION_SENDING_SERVICE_OPERATIONS)
};
}  // namespace Kiv::System::Nm::Services::Internal
