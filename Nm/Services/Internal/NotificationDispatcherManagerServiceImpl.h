#pragma once

#include <Nm/Services/Internal/INotificationDispatcherManagerService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class NotificationDispatcherManagerServiceImpl : public INotificationDispatcherManagerService
{
public:
    std::uint16_t RegisterDispatcher(const TulString<512>& dispatcherName) override;
    void UnregisterDispatcher(std::uint16_t dispatcherId) override;
    void RegisterNotificationDispatch(std::uint32_t notificationNameId, std::uint16_t dispatcherId) override;
    void UnregisterNotificationDispatch(std::uint32_t notificationNameId,
                                        std::uint16_t dispatcherId) override;
    bool ContainsNotificationDispatch(std::uint32_t notificationNameId, std::uint16_t dispatcherId) override;
};
}  // namespace Kiv::System::Nm::Services::Internal
