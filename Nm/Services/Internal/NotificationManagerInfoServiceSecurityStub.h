#pragma once

#include <Nm/Services/Internal/NotificationManagerInfoServiceImpl.h>
#include <Nm/Services/TulServiceSecurityStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Asks for the caller's right to each operation, by the operation's name, before the Impl is reached.
class NotificationManagerInfoServiceSecurityStub
    : public TulServiceSecurityStubBase<NotificationManagerInfoServiceImpl>
{
public:
    NotificationManagerInfoServiceSecurityStub(const char* providerName, Tul::ITulAuthorizator* authorizator);

    TulString<512> GetNotificationName(std::uint32_t notificationNameId) override;
    std::uint32_t GetNotificationNameId(const TulString<512>& notificationName) override;
    std::vector<std::uint32_t> GetNotificationNameIdsByStatus(NotificationRegistrationStatus status) override;
    std::vector<std::uint32_t> GetAllKnownNotificationNameIds() override;
    NotificationRegistrationInfo GetNotificationRegistration(std::uint32_t notificationNameId) override;
    std::uint16_t GetPayloadTypeId(const TulString<512>& payloadTypeName) override;
    TulString<512> GetPayloadTypeName(std::uint16_t payloadTypeId) override;
    std::uint64_t GetNumberOfSubmittedNotifications() override;
};
}  // namespace Kiv::System::Nm::Services::Internal
