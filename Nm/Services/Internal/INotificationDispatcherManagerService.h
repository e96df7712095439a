#pragma once

#include <Nm/Services/ServiceDescription.h>
#include <Nm/TulString.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulService.h>

#include <cstdint>

namespace Kiv::System::Nm::Services::Internal
{
struct NotificationDispatcherManagerServiceDescription;

/// The broker's bookkeeping of dispatchers and of the names each wants, for the dispatchers of all processes.
/// Ids travel as plain integers and names as fixed strings.
class KIV_API INotificationDispatcherManagerService : public Tul::ITulService
{
public:
    using Description = NotificationDispatcherManagerServiceDescription;
    ~INotificationDispatcherManagerService() override;

    virtual std::uint16_t RegisterDispatcher(const TulString<512>& dispatcherName) = 0;
    virtual void UnregisterDispatcher(std::uint16_t dispatcherId) = 0;
    virtual void RegisterNotificationDispatch(std::uint32_t notificationNameId,
                                              std::uint16_t dispatcherId) = 0;
    virtual void UnregisterNotificationDispatch(std::uint32_t notificationNameId,
                                                std::uint16_t dispatcherId) = 0;
    virtual bool ContainsNotificationDispatch(std::uint32_t notificationNameId,
                                              std::uint16_t dispatcherId) = 0;
};

/// Operation(method id, result, name, argument types in wire order), in the order of the interface.
// clang-format off
#define KIV_NM_NOTIFICATION_DISPATCHER_MANAGER_SERVICE_OPERATIONS(Operation)         \
    Operation(1, std::uint16_t, RegisterDispatcher, const TulString<512>&)           \
    Operation(2, void, UnregisterDispatcher, std::uint16_t)                          \
    Operation(3, void, RegisterNotificationDispatch, std::uint32_t, std::uint16_t)   \
    Operation(4, void, UnregisterNotificationDispatch, std::uint32_t, std::uint16_t) \
    Operation(5, bool, ContainsNotificationDispatch, std::uint32_t, std::uint16_t)
// clang-format on

struct NotificationDispatcherManagerServiceDescription
    : ServiceDescription<INotificationDispatcherManagerService>
{
    static constexpr const char* serviceName =
        "Kiv.System.Nm.Services.Internal.INotificationDispatcherManagerService";
    KIV_TUL_OPERATION_TABLE(KIV_NM_NOTIFICATION_DISPATCHER_MANAGER_SERVICE_OPERATIONS)
};
}  // namespace Kiv::System::Nm::Services::Internal
