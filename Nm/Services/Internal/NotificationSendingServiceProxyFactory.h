#pragma once

#include <Nm/Services/Internal/INotificationSendingService.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// NotificationSendingServiceProxy and NotificationSendingServiceProxyFactory.
KIV_TUL_CLIENT_CLASSES(NotificationSendingService, KIV_NM_NOTIFICATION_SENDING_SERVICE_OPERATIONS, KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
