#include <Nm/INotificationReceiving.h>
#include <Nm/INotificationSubscriber.h>

namespace Kiv::System::Nm
{
INotificationReceiving::~INotificationReceiving() = default;
INotificationSubscriber::~INotificationSubscriber() = default;
}  // namespace Kiv::System::Nm
