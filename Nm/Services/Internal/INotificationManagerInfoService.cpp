#include <Nm/Services/Internal/INotificationManagerInfoService.h>

namespace Kiv::System::Nm::Services::Internal
{
INotificationManagerInfoService::~INotificationManagerInfoService() = default;
}
