#pragma once

#include <Nm/Services/NotificationManagerServiceImpl.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services
{
// NotificationManagerServiceSecurityStub, NotificationManagerServiceStub and
// NotificationManagerServiceFactory, with every call checked by the security stub.
KIV_TUL_SERVER_CLASSES(NotificationManagerService, KIV_NM_NOTIFICATION_MANAGER_SERVICE_OPERATIONS, KIV_API);
}  // namespace Kiv::System::Nm::Services
