#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCallCreatePayloadStdFunction.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
SendNotificationCallCreatePayloadStdFunction::SendNotificationCallCreatePayloadStdFunction(
    const NotificationNameId& notificationNameId, const DateTime& timestamp,
    CreatePayloadFunction createPayload)
    : SendNotificationCall(notificationNameId, timestamp), createPayload(std::move(createPayload))
{
}

SendNotificationCallCreatePayloadStdFunction::SendNotificationCallCreatePayloadStdFunction(
    Future<NotificationId> future, const NotificationNameId& notificationNameId, const DateTime& timestamp,
    CreatePayloadFunction createPayload)
    : SendNotificationCall(std::move(future), notificationNameId, timestamp),
      createPayload(std::move(createPayload))
{
}

std::vector<TulVariant<512>> SendNotificationCallCreatePayloadStdFunction::GetPayload() const
{
    return createPayload();
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
