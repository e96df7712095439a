#pragma once

#include <Nm/Services/Internal/INotificationManagerInfoService.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// NotificationManagerInfoServiceProxy and NotificationManagerInfoServiceProxyFactory.
KIV_TUL_CLIENT_CLASSES(NotificationManagerInfoService, KIV_NM_NOTIFICATION_MANAGER_INFO_SERVICE_OPERATIONS,
                       KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
