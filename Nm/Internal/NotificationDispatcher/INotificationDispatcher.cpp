#include <Nm/Internal/NotificationDispatcher/INotificationDispatcher.h>

namespace Kiv::System::Nm::Internal::NotificationDispatcher
{
INotificationDispatcher::~INotificationDispatcher() = default;
}
