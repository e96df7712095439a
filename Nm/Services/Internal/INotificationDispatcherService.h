#pragma once

#include <Nm/Services/Internal/NotificationBatch.h>
#include <Nm/Services/ServiceDescription.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulService.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm::Services::Internal
{
struct NotificationDispatcherServiceDescription;

/// The way from the broker to the dispatcher of one process.
class KIV_API INotificationDispatcherService : public Tul::ITulService
{
public:
    using Description = NotificationDispatcherServiceDescription;
    ~INotificationDispatcherService() override;

    /// Delivers `notification` to the subscribers of the process under `nameIds`, the ids of the
    /// notification's name and its ancestors that this dispatcher wants, top-most first.
    virtual void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) = 0;
    /// Delivers the batch in order, as Dispatch would each notification; the answer names the ones whose
    /// delivery failed (empty when all were delivered, and then nothing is allocated for it).
    virtual std::vector<DispatchFailure> DispatchBatch(const NotificationBatch& batch) = 0;
};

/// Operation(method id, result, name, argument types in wire order), in the order of the interface.
// clang-format off
#define KIV_NM_NOTIFICATION_DISPATCHER_SERVICE_OPERATIONS(Operation)                     \
    Operation(1, void, Dispatch, const Notification&, const std::vector<std::uint32_t>&) \
    Operation(2, std::vector<DispatchFailure>, DispatchBatch, const NotificationBatch&)
// clang-format on

/// Published by each process under its own name; the provider name here is never used.
struct NotificationDispatcherServiceDescription : ServiceDescription<INotificationDispatcherService>
{
    static constexpr const char* serviceName =
        "Kiv.System.Nm.Services.Internal.INotificationDispatcherService";
    static constexpr const char* providerName = "";
    KIV_TUL_OPERATION_TABLE(KIV_NM_NOTIFICATION_DISPATCHER_SERVICE_OPERATIONS)
};
}  // namespace Kiv::System::Nm::Services::Internal
