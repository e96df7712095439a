#pragma once

#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCall.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// A notification whose payload the caller made; the vector is moved in and moved out once.
class KIV_API SendNotificationCallRawPayload final : public SendNotificationCall
{
public:
    SendNotificationCallRawPayload(const NotificationNameId& notificationNameId, const DateTime& timestamp,
                                   std::vector<TulVariant<512>> payload);
    SendNotificationCallRawPayload(SendNotificationCallRawPayload&&) noexcept = default;
    SendNotificationCallRawPayload& operator=(SendNotificationCallRawPayload&&) noexcept = default;
    ~SendNotificationCallRawPayload() override = default;

protected:
    /// Leaves an empty vector behind.
    std::vector<TulVariant<512>> GetPayload() const override;

private:
    mutable std::vector<TulVariant<512>> payload;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
