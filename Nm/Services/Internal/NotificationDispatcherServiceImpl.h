#pragma once

#include <Nm/Services/Internal/INotificationDispatcherService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class NotificationDispatcherServiceImpl : public INotificationDispatcherService
{
public:
    KIV_NM_NOTIFICATION_DISPATCHER_SERVICE_OPERATIONS(KIV_TUL_OVERRIDE)
};
}  // namespace Kiv::System::Nm::Services::Internal
