#pragma once

#include <Nm/Services/Internal/NotificationDispatcherManagerServiceImpl.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// NotificationDispatcherManagerServiceSecurityStub, NotificationDispatcherManagerServiceStub and
// NotificationDispatcherManagerServiceFactory.
KIV_TUL_SERVER_CLASSES(NotificationDispatcherManagerService,
                       KIV_NM_NOTIFICATION_DISPATCHER_MANAGER_SERVICE_OPERATIONS, KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
