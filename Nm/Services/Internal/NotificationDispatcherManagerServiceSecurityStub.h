#pragma once

#include <Nm/Services/Internal/NotificationDispatcherManagerServiceImpl.h>
#include <Nm/Services/TulServiceSecurityStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Asks for the caller's right to each operation, by the operation's name, before the Impl is reached.
class NotificationDispatcherManagerServiceSecurityStub
    : public TulServiceSecurityStubBase<NotificationDispatcherManagerServiceImpl>
{
public:
    NotificationDispatcherManagerServiceSecurityStub(const char* providerName,
                                                     Tul::ITulAuthorizator* authorizator);

    std::uint16_t RegisterDispatcher(const TulString<512>& dispatcherName) override;
    void UnregisterDispatcher(std::uint16_t dispatcherId) override;
    void RegisterNotificationDispatch(std::uint32_t notificationNameId, std::uint16_t dispatcherId) override;
    void UnregisterNotificationDispatch(std::uint32_t notificationNameId,
                                        std::uint16_t dispatcherId) override;
    bool ContainsNotificationDispatch(std::uint32_t notificationNameId, std::uint16_t dispatcherId) override;
};
}  // namespace Kiv::System::Nm::Services::Internal
