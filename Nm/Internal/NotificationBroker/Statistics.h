#pragma once

#include <Kiv/Export.h>

#include <atomic>
#include <cstdint>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// The count of notifications that went into the broker's queue, the broker's own included. Refused ones
/// never count.
class KIV_API Statistics
{
public:
    void OnSendNotification() { ++sendNotifications; }
    std::uint64_t GetNumberOfSendNotifications() const { return sendNotifications.load(); }

private:
    std::atomic<std::uint64_t> sendNotifications{0};
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
