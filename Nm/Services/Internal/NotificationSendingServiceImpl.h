#pragma once

#include <Nm/Services/Internal/INotificationSendingService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class NotificationSendingServiceImpl : public INotificationSendingService
{
public:
    KIV_NM_NOTIFICATION_SENDING_SERVICE_OPERATIONS(KIV_TUL_OVERRIDE)
};
}  // namespace Kiv::System::Nm::Services::Internal
