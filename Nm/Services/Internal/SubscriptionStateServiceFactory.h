#pragma once

#include <Nm/Services/Internal/SubscriptionStateServiceImpl.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// SubscriptionStateServiceSecurityStub, SubscriptionStateServiceStub and SubscriptionStateServiceFactory.
KIV_TUL_SERVER_CLASSES(SubscriptionStateService, KIV_NM_SUBSCRIPTION_STATE_SERVICE_OPERATIONS, KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
