#include <Nm/Services/Internal/INotificationSendingService.h>

namespace Kiv::System::Nm::Services::Internal
{
INotificationSendingService::~INotificationSendingService() = default;
}
