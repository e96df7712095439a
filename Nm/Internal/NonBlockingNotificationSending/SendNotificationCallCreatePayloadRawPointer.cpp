#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCallCreatePayloadRawPointer.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
SendNotificationCallCreatePayloadRawPointer::SendNotificationCallCreatePayloadRawPointer(
    Future<NotificationId> future, const NotificationNameId& notificationNameId, const DateTime& timestamp,
    CreatePayloadFunction createPayload, CreatePayloadFunctorArg createPayloadArg)
    : SendNotificationCall(std::move(future), notificationNameId, timestamp),
      createPayload(createPayload),
      createPayloadArg(std::move(createPayloadArg))
{
}

std::vector<TulVariant<512>> SendNotificationCallCreatePayloadRawPointer::GetPayload() const
{
    if (createPayload == nullptr)
    {
        return {};
    }
    // The function gets its own copy; the record keeps its hold on the buffer.
    return createPayload(createPayloadArg);
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
