#pragma once

#include <Nm/Services/Internal/NotificationManagerInfoServiceImpl.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// NotificationManagerInfoServiceSecurityStub, NotificationManagerInfoServiceStub and
// NotificationManagerInfoServiceFactory.
KIV_TUL_SERVER_CLASSES(NotificationManagerInfoService, KIV_NM_NOTIFICATION_MANAGER_INFO_SERVICE_OPERATIONS,
                       KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
