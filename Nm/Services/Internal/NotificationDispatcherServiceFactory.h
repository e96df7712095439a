#pragma once

#include <Nm/Services/Internal/NotificationDispatcherServiceImpl.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// NotificationDispatcherServiceSecurityStub, NotificationDispatcherServiceStub and
// NotificationDispatcherServiceFactory.
KIV_TUL_SERVER_CLASSES(NotificationDispatcherService, KIV_NM_NOTIFICATION_DISPATCHER_SERVICE_OPERATIONS,
                       KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
