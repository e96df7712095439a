#include <Nm/NonBlockingNotificationRegistration3ArgumentsBufferBase.h>

namespace Kiv::System::Nm
{
NonBlockingNotificationRegistration3ArgumentsBufferBase::
    ~NonBlockingNotificationRegistration3ArgumentsBufferBase() = default;
}  // namespace Kiv::System::Nm
