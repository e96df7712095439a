#pragma once

#include <Nm/Services/Internal/NotificationDispatcherServiceImpl.h>
#include <Nm/Services/TulServiceStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The server end of INotificationDispatcherService: one member per operation, chosen by the method id.
class NotificationDispatcherServiceStub : public TulServiceStubBase<NotificationDispatcherServiceImpl>
{
public:
    explicit NotificationDispatcherServiceStub(NotificationDispatcherServiceImpl* service);

    void Invoke(int methodId, Tul::TulServerContext& context) override;

private:
    void Dispatch(Tul::TulServerContext& context);
};
}  // namespace Kiv::System::Nm::Services::Internal
