#pragma once

#include <Nm/Services/Internal/NotificationSendingServiceImpl.h>
#include <Nm/Services/TulServiceSecurityStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Asks for the caller's right to each operation, by the operation's name, before the Impl is reached.
class NotificationSendingServiceSecurityStub
    : public TulServiceSecurityStubBase<NotificationSendingServiceImpl>
{
public:
    NotificationSendingServiceSecurityStub(const char* providerName, Tul::ITulAuthorizator* authorizator);

    std::uint32_t RegisterNotification(const TulString<512>& notificationName,
                                       const TulString<512>& senderName, Severity severity,
                                       std::uint16_t payloadTypeId) override;
    void UnregisterNotification(std::uint32_t notificationNameId) override;
    std::uint64_t SendNotification(std::uint32_t notificationNameId, DateTime timestamp,
                                   const std::vector<TulVariant<512>>& payload) override;
};
}  // namespace Kiv::System::Nm::Services::Internal
