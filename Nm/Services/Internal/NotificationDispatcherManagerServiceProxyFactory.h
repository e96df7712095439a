#pragma once

#include <Nm/Services/Internal/INotificationDispatcherManagerService.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// NotificationDispatcherManagerServiceProxy and NotificationDispatcherManagerServiceProxyFactory.
KIV_TUL_CLIENT_CLASSES(NotificationDispatcherManagerService,
                       KIV_NM_NOTIFICATION_DISPATCHER_MANAGER_SERVICE_OPERATIONS, KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
