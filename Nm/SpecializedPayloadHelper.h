#pragma once

#include <Nm/INotificationManagerInfo.h>

#include <Kiv/Export.h>

#include <cstdint>

namespace Kiv::System::Nm
{
/// Where payload classes learn their payload type ids.
class KIV_API SpecializedPayloadHelper
{
public:
    /// The process's NotificationManager, or else its NotificationBroker. Raises InvalidOperationException
    /// "Cannot access NotificationManager or NotificationBroker!" when neither is there.
    static INotificationManagerInfo& GetINotificationManagerInfo();

    /// Payload type ids are handed out by one broker; a new broker starts its table afresh. The broker and
    /// the manager call OnNewSetup when they come up, so ids cached under an earlier setup of this process
    /// are asked for again. A broker that restarts in another process goes unnoticed here.
    static std::uint32_t GetSetupGeneration() noexcept;
    static void OnNewSetup() noexcept;
};
}  // namespace Kiv::System::Nm
