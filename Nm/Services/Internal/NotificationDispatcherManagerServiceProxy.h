#pragma once

#include <Nm/Services/Internal/INotificationDispatcherManagerService.h>
#include <Nm/Services/TulServiceProxyBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The caller's end of INotificationDispatcherManagerService: each operation is one call with its method id,
/// in the order of the interface.
class NotificationDispatcherManagerServiceProxy
    : public TulServiceProxyBase<INotificationDispatcherManagerService>
{
public:
    NotificationDispatcherManagerServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                              Tul::TulClient& client);

    void RefreshServiceHandle() override;
    std::uint16_t RegisterDispatcher(const TulString<512>& dispatcherName) override;
    void UnregisterDispatcher(std::uint16_t dispatcherId) override;
    void RegisterNotificationDispatch(std::uint32_t notificationNameId, std::uint16_t dispatcherId) override;
    void UnregisterNotificationDispatch(std::uint32_t notificationNameId,
                                        std::uint16_t dispatcherId) override;
    bool ContainsNotificationDispatch(std::uint32_t notificationNameId, std::uint16_t dispatcherId) override;
};
}  // namespace Kiv::System::Nm::Services::Internal
