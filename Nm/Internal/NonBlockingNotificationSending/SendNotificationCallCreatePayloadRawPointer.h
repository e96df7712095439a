#pragma once

#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCall.h>
#include <Nm/NonBlockingNotificationSendingAdapter.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// A notification whose payload a plain function builds on the worker from an entry of an arguments
/// buffer. The record holds the buffer alive as long as it exists, run or not. A null function sends an
/// empty payload. Building this record allocates nothing.
class KIV_API SendNotificationCallCreatePayloadRawPointer final : public SendNotificationCall
{
public:
    using CreatePayloadFunctorArg = NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg;
    using CreatePayloadFunction = NonBlockingNotificationSendingAdapter::CreatePayloadFunction;

    SendNotificationCallCreatePayloadRawPointer(Future<NotificationId> future,
                                                const NotificationNameId& notificationNameId,
                                                const DateTime& timestamp,
                                                CreatePayloadFunction createPayload,
                                                CreatePayloadFunctorArg createPayloadArg);
    SendNotificationCallCreatePayloadRawPointer(SendNotificationCallCreatePayloadRawPointer&&) noexcept =
        default;
    SendNotificationCallCreatePayloadRawPointer& operator=(
        SendNotificationCallCreatePayloadRawPointer&&) noexcept = default;
    ~SendNotificationCallCreatePayloadRawPointer() override = default;

protected:
    std::vector<TulVariant<512>> GetPayload() const override;

private:
    CreatePayloadFunction createPayload;
    CreatePayloadFunctorArg createPayloadArg;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
