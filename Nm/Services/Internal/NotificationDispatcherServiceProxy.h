#pragma once

#include <Nm/Services/Internal/INotificationDispatcherService.h>
#include <Nm/Services/TulServiceProxyBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The broker's end of a dispatcher's service.
class NotificationDispatcherServiceProxy : public TulServiceProxyBase<INotificationDispatcherService>
{
public:
    NotificationDispatcherServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                       Tul::TulClient& client);

    void RefreshServiceHandle() override;
    void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) override;
};
}  // namespace Kiv::System::Nm::Services::Internal
