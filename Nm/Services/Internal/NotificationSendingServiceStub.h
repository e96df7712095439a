#pragma once

#include <Nm/Services/Internal/NotificationSendingServiceImpl.h>
#include <Nm/Services/TulServiceStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The server end of INotificationSendingService: one member per operation, chosen by the method id.
class NotificationSendingServiceStub : public TulServiceStubBase<NotificationSendingServiceImpl>
{
public:
    explicit NotificationSendingServiceStub(NotificationSendingServiceImpl* service);

    void Invoke(int methodId, Tul::TulServerContext& context) override;

private:
    void RegisterNotification(Tul::TulServerContext& context);
    void UnregisterNotification(Tul::TulServerContext& context);
    void SendNotification(Tul::TulServerContext& context);
};
}  // namespace Kiv::System::Nm::Services::Internal
