#pragma once

#include <Nm/Services/ServiceDescription.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulService.h>

namespace Kiv::System::Nm::Services::Internal
{
struct SubscriptionStateServiceDescription;

/// The strictness of subscriptions at the broker: relaxed while the system sets up, checked after.
class KIV_API ISubscriptionStateService : public Tul::ITulService
{
public:
    using Description = SubscriptionStateServiceDescription;
    ~ISubscriptionStateService() override;

    virtual bool IsChecked() = 0;
    virtual void SetStateChecked() = 0;
    virtual void SetStateRelaxed() = 0;
};

/// Operation(method id, result, name, argument types in wire order), in the order of the interface.
// clang-format off
#define KIV_NM_SUBSCRIPTION_STATE_SERVICE_OPERATIONS(Operation) \
    Operation(1, bool, IsChecked)                               \
    Operation(2, void, SetStateChecked)                         \
    Operation(3, void, SetStateRelaxed)
// clang-format on

struct SubscriptionStateServiceDescription : ServiceDescription<ISubscriptionStateService>
{
    static constexpr const char* serviceName = "Kiv.System.Nm.Services.Internal.ISubscriptionStateService";
    KIV_TUL_OPERATION_TABLE(KIV_NM_SUBSCRIPTION_STATE_SERVICE_OPERATIONS)
};
}  // namespace Kiv::System::Nm::Services::Internal
