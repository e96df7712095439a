#pragma once

#include <Nm/Services/Internal/ISubscriptionStateService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class SubscriptionStateServiceImpl : public ISubscriptionStateService
{
public:
    KIV_NM_SUBSCRIPTION_STATE_SERVICE_OPERATIONS(KIV_TUL_OVERRIDE)
};
}  // namespace Kiv::System::Nm::Services::Internal
