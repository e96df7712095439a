#pragma once

#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCall.h>

#include <functional>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// A notification whose payload a function object builds on the worker. The function must not rely on
/// the caller's thread or stack. An empty one raises std::bad_function_call, which no Future takes.
class KIV_API SendNotificationCallCreatePayloadStdFunction final : public SendNotificationCall
{
public:
    using CreatePayloadFunction = std::function<std::vector<TulVariant<512>>()>;

    SendNotificationCallCreatePayloadStdFunction(const NotificationNameId& notificationNameId,
                                                 const DateTime& timestamp,
                                                 CreatePayloadFunction createPayload);
    SendNotificationCallCreatePayloadStdFunction(Future<NotificationId> future,
                                                 const NotificationNameId& notificationNameId,
                                                 const DateTime& timestamp,
                                                 CreatePayloadFunction createPayload);
    SendNotificationCallCreatePayloadStdFunction(SendNotificationCallCreatePayloadStdFunction&&) noexcept =
        default;
    SendNotificationCallCreatePayloadStdFunction& operator=(
        SendNotificationCallCreatePayloadStdFunction&&) noexcept = default;
    ~SendNotificationCallCreatePayloadStdFunction() override = default;

protected:
    std::vector<TulVariant<512>> GetPayload() const override;

private:
    CreatePayloadFunction createPayload;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
