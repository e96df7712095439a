#include <Nm/Services/Internal/INotificationDispatcherService.h>

namespace Kiv::System::Nm::Services::Internal
{
INotificationDispatcherService::~INotificationDispatcherService() = default;
}
