#pragma once

#include <Nm/Services/Internal/INotificationManagerInfoService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class NotificationManagerInfoServiceImpl : public INotificationManagerInfoService
{
public:
    KIV_NM_NOTIFICATION_MANAGER_INFO_SERVICE_OPERATIONS(KIV_TUL_OVERRIDE)
};
}  // namespace Kiv::System::Nm::Services::Internal
