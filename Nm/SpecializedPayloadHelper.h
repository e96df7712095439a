#pragma once

#include <Nm/INotificationManagerInfo.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm
{
/// Where payload classes learn their payload type ids.
class KIV_API SpecializedPayloadHelper
{
public:
    /// The process's NotificationManager, or else its NotificationBroker. Raises InvalidOperationException
    /// "Cannot access NotificationManager or NotificationBroker!" when neither is there.
    static INotificationManagerInfo& GetINotificationManagerInfo();
};
}  // namespace Kiv::System::Nm
