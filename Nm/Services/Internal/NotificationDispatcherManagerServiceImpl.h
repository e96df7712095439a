#pragma once

#include <Nm/Services/Internal/INotificationDispatcherManagerService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class NotificationDispatcherManagerServiceImpl : public INotificationDispatcherManagerService
{
public:
    KIV_NM_NOTIFICATION_DISPATCHER_MANAGER_SERVICE_OPERATIONS(KIV_TUL_OVERRIDE)
};
}  // namespace Kiv::System::Nm::Services::Internal
