#include <Nm/Services/INotificationManagerService.h>

namespace Kiv::System::Nm::Services
{
INotificationManagerService::~INotificationManagerService() = default;
}
