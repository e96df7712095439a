#pragma once

#include <Nm/Services/Internal/ISubscriptionStateService.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// SubscriptionStateServiceProxy and SubscriptionStateServiceProxyFactory.
KIV_TUL_CLIENT_CLASSES(SubscriptionStateService, KIV_NM_SUBSCRIPTION_STATE_SERVICE_OPERATIONS, KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
