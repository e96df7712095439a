#pragma once

#include <Nm/Services/Internal/INotificationDispatcherService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class NotificationDispatcherServiceImpl : public INotificationDispatcherService
{
public:
    void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) override;
};
}  // namespace Kiv::System::Nm::Services::Internal
