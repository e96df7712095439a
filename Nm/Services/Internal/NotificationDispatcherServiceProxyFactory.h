#pragma once

#include <Nm/Services/Internal/INotificationDispatcherService.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// NotificationDispatcherServiceProxy and NotificationDispatcherServiceProxyFactory.
KIV_TUL_CLIENT_CLASSES(NotificationDispatcherService, KIV_NM_NOTIFICATION_DISPATCHER_SERVICE_OPERATIONS,
                       KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
