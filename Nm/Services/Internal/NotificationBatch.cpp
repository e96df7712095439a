#include <Nm/Services/Internal/NotificationBatch.h>

namespace Kiv::System::Nm::Services::Internal
{
void NotificationBatch::Add(std::shared_ptr<const Notification> notification, const std::uint32_t* ids,
                            std::size_t count)
{
    notifications.push_back(std::move(notification));
    nameIdCounts.push_back(static_cast<std::uint32_t>(count));
    nameIds.insert(nameIds.end(), ids, ids + count);
}

void NotificationBatch::Clear() noexcept
{
    notifications.clear();
    nameIdCounts.clear();
    nameIds.clear();
}
}  // namespace Kiv::System::Nm::Services::Internal
