#pragma once

#include <Nm/Services/NotificationManagerServiceImpl.h>
#include <Nm/Services/TulServiceSecurityStubBase.h>

namespace Kiv::System::Nm::Services
{
/// Asks for the caller's right to each operation, by the operation's name, before the Impl is reached.
class NotificationManagerServiceSecurityStub
    : public TulServiceSecurityStubBase<NotificationManagerServiceImpl>
{
public:
    NotificationManagerServiceSecurityStub(const char* providerName, Tul::ITulAuthorizator* authorizator);

    std::uint32_t RegisterNotification(const TulString<512>& notificationName,
                                       const TulString<512>& senderName, Severity severity,
                                       const TulString<512>& payloadTypeName) override;
    void UnregisterNotification(std::uint32_t notificationNameId) override;
    std::uint64_t SendNotification(std::uint32_t notificationNameId, DateTime timestamp,
                                   const std::vector<TulVariant<512>>& payload) override;
    TulString<512> GetNotificationName(std::uint32_t notificationNameId) override;
    std::uint32_t GetNotificationNameId(const TulString<512>& notificationName) override;
    std::vector<std::uint32_t> GetNotificationNameIdsByStatus(NotificationRegistrationStatus status) override;
    std::vector<std::uint32_t> GetAllKnownNotificationNameIds() override;
    NotificationRegistrationInfo GetNotificationRegistration(std::uint32_t notificationNameId) override;
    std::uint16_t GetPayloadTypeId(const TulString<512>& payloadTypeName) override;
    TulString<512> GetPayloadTypeName(std::uint16_t payloadTypeId) override;
    std::uint64_t GetNumberOfSubmittedNotifications() override;
};
}  // namespace Kiv::System::Nm::Services
