#pragma once

#include <Nm/Services/Internal/NotificationSendingServiceImpl.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulServiceBases.h>

namespace Kiv::System::Nm::Services::Internal
{
// NotificationSendingServiceSecurityStub, NotificationSendingServiceStub and
// NotificationSendingServiceFactory.
KIV_TUL_SERVER_CLASSES(NotificationSendingService, KIV_NM_NOTIFICATION_SENDING_SERVICE_OPERATIONS, KIV_API);
}  // namespace Kiv::System::Nm::Services::Internal
