#pragma once

#include <Nm/Notification.h>
#include <Nm/TulString.h>

#include <Kiv/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Kiv::System::Nm::Services::Internal
{
/// Notifications for one dispatcher in the order of delivery, each with the ids of its name and of the
/// name's ancestors that this dispatcher wants, top-most first (as Dispatch's nameIds).
struct KIV_API NotificationBatch
{
    std::vector<std::shared_ptr<const Notification>> notifications;
    std::vector<std::uint32_t> nameIdCounts;  // per notification, how many of nameIds are its
    std::vector<std::uint32_t> nameIds;       // all, in notification order

    void Add(std::shared_ptr<const Notification> notification, const std::uint32_t* ids, std::size_t count);
    /// Keeps the capacity for the next batch.
    void Clear() noexcept;
    std::size_t Size() const noexcept { return notifications.size(); }
};

/// A notification of a batch that was not delivered, and why (the text of what it threw).
struct DispatchFailure
{
    std::uint32_t index = 0;  // into NotificationBatch::notifications
    TulString<512> message;
};
}  // namespace Kiv::System::Nm::Services::Internal
