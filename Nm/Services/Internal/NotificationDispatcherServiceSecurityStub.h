#pragma once

#include <Nm/Services/Internal/NotificationDispatcherServiceImpl.h>
#include <Nm/Services/TulServiceSecurityStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Asks for the caller's right to each operation, by the operation's name, before the Impl is reached.
class NotificationDispatcherServiceSecurityStub
    : public TulServiceSecurityStubBase<NotificationDispatcherServiceImpl>
{
public:
    NotificationDispatcherServiceSecurityStub(const char* providerName, Tul::ITulAuthorizator* authorizator);

    void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) override;
};
}  // namespace Kiv::System::Nm::Services::Internal
