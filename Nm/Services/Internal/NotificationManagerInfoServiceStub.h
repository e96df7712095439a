#pragma once

#include <Nm/Services/Internal/NotificationManagerInfoServiceImpl.h>
#include <Nm/Services/TulServiceStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The server end of INotificationManagerInfoService: one member per operation, chosen by the method id.
class NotificationManagerInfoServiceStub : public TulServiceStubBase<NotificationManagerInfoServiceImpl>
{
public:
    explicit NotificationManagerInfoServiceStub(NotificationManagerInfoServiceImpl* service);

    void Invoke(int methodId, Tul::TulServerContext& context) override;

private:
    void GetNotificationName(Tul::TulServerContext& context);
    void GetNotificationNameId(Tul::TulServerContext& context);
    void GetNotificationNameIdsByStatus(Tul::TulServerContext& context);
    void GetAllKnownNotificationNameIds(Tul::TulServerContext& context);
    void GetNotificationRegistration(Tul::TulServerContext& context);
    void GetPayloadTypeId(Tul::TulServerContext& context);
    void GetPayloadTypeName(Tul::TulServerContext& context);
    void GetNumberOfSubmittedNotifications(Tul::TulServerContext& context);
};
}  // namespace Kiv::System::Nm::Services::Internal
