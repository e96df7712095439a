#pragma once

#include <Nm/Services/NotificationManagerServiceImpl.h>
#include <Nm/Services/TulServiceStubBase.h>

namespace Kiv::System::Nm::Services
{
/// The server end of INotificationManagerService: one member per operation, chosen by the method id.
class NotificationManagerServiceStub : public TulServiceStubBase<NotificationManagerServiceImpl>
{
public:
    explicit NotificationManagerServiceStub(NotificationManagerServiceImpl* service);

    void Invoke(int methodId, Tul::TulServerContext& context) override;

private:
    void RegisterNotification(Tul::TulServerContext& context);
    void UnregisterNotification(Tul::TulServerContext& context);
    void SendNotification(Tul::TulServerContext& context);
    void GetNotificationName(Tul::TulServerContext& context);
    void GetNotificationNameId(Tul::TulServerContext& context);
    void GetNotificationNameIdsByStatus(Tul::TulServerContext& context);
    void GetAllKnownNotificationNameIds(Tul::TulServerContext& context);
    void GetNotificationRegistration(Tul::TulServerContext& context);
    void GetPayloadTypeId(Tul::TulServerContext& context);
    void GetPayloadTypeName(Tul::TulServerContext& context);
    void GetNumberOfSubmittedNotifications(Tul::TulServerContext& context);
};
}  // namespace Kiv::System::Nm::Services
