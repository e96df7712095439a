#pragma once

#include <Nm/Services/INotificationManagerService.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services
{
// NotificationManagerServiceProxy and NotificationManagerServiceProxyFactory.
KIV_TUL_CLIENT_CLASSES(NotificationManagerService, KIV_NM_NOTIFICATION_MANAGER_SERVICE_OPERATIONS, KIV_API);
}  // namespace Kiv::System::Nm::Services
