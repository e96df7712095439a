#pragma once

#include <Nm/Services/INotificationManagerService.h>

namespace Kiv::System::Nm::Services
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class NotificationManagerServiceImpl : public INotificationManagerService
{
public:
    KIV_NM_NOTIFICATION_MANAGER_SERVICE_OPERATIONS(KIV_TUL_OVERRIDE)
};
}  // namespace Kiv::System::Nm::Services
