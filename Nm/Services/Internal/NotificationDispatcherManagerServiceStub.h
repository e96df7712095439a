#pragma once

#include <Nm/Services/Internal/NotificationDispatcherManagerServiceImpl.h>
#include <Nm/Services/TulServiceStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The server end of INotificationDispatcherManagerService: one member per operation, chosen by the method
/// id.
class NotificationDispatcherManagerServiceStub
    : public TulServiceStubBase<NotificationDispatcherManagerServiceImpl>
{
public:
    explicit NotificationDispatcherManagerServiceStub(NotificationDispatcherManagerServiceImpl* service);

    void Invoke(int methodId, Tul::TulServerContext& context) override;

private:
    void RegisterDispatcher(Tul::TulServerContext& context);
    void UnregisterDispatcher(Tul::TulServerContext& context);
    void RegisterNotificationDispatch(Tul::TulServerContext& context);
    void UnregisterNotificationDispatch(Tul::TulServerContext& context);
    void ContainsNotificationDispatch(Tul::TulServerContext& context);
};
}  // namespace Kiv::System::Nm::Services::Internal
