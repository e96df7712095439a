#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCallRawPayload.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
SendNotificationCallRawPayload::SendNotificationCallRawPayload(const NotificationNameId& notificationNameId,
                                                               const DateTime& timestamp,
                                                               std::vector<TulVariant<512>> payload)
    : SendNotificationCall(notificationNameId, timestamp), payload(std::move(payload))
{
}

std::vector<TulVariant<512>> SendNotificationCallRawPayload::GetPayload() const
{
    return std::move(payload);
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
