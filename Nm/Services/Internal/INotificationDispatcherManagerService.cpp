#include <Nm/Services/Internal/INotificationDispatcherManagerService.h>

namespace Kiv::System::Nm::Services::Internal
{
INotificationDispatcherManagerService::~INotificationDispatcherManagerService() = default;
}
