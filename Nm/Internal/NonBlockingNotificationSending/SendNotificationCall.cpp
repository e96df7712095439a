#include <Nm/INotificationSending.h>
#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCall.h>

#include <Kiv/Threading/Thread.h>

#include <atomic>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
namespace
{
std::atomic<SendNotificationCall::SleepFunction> replacedSleep{nullptr};
}  // namespace

void SendNotificationCall::Pause(unsigned int duration)
{
    if (SleepFunction sleep = replacedSleep.load())
    {
        sleep(duration);
    }
    else
    {
        Commons::Threading::Thread::Sleep(duration);
    }
}

SendNotificationCall::SendNotificationCall(const NotificationNameId& notificationNameId,
                                           const DateTime& timestamp)
    : notificationNameId(notificationNameId), timestamp(timestamp)
{
}

SendNotificationCall::SendNotificationCall(Future<NotificationId> future,
                                           const NotificationNameId& notificationNameId,
                                           const DateTime& timestamp)
    : FunctionCall(std::move(future)), notificationNameId(notificationNameId), timestamp(timestamp)
{
}

SendNotificationCall::SleepFunction SendNotificationCall::SetSleepFunction(SleepFunction sleep) noexcept
{
    return replacedSleep.exchange(sleep);
}

void SendNotificationCall::DoExecute(INotificationSending& sending) const
{
    // Built once: every try sends the same payload, and a failure here ends the call before any send.
    const std::vector<TulVariant<512>> payload = GetPayload();
    SendUntilTaken(sending, payload);
}

bool SendNotificationCall::BuildPayload(std::vector<TulVariant<512>>& payload) const
{
    return RunFinishingOnFailure([this, &payload] { payload = GetPayload(); });
}

void SendNotificationCall::ExecuteWithPayload(INotificationSending& sending,
                                              const std::vector<TulVariant<512>>& payload) const
{
    RunFinishingOnFailure([this, &sending, &payload] { SendUntilTaken(sending, payload); });
}

void SendNotificationCall::SendUntilTaken(INotificationSending& sending,
                                          const std::vector<TulVariant<512>>& payload) const
{
    int sleepDuration = 1;
    NotificationId id = sending.SendNotification(notificationNameId, timestamp, payload);
    while (!NotificationWasSent(id))
    {
        Pause(static_cast<unsigned int>(sleepDuration));
        sleepDuration = IncreaseSleepDuration(sleepDuration);
        id = sending.SendNotification(notificationNameId, timestamp, payload);
    }
    GetPromise().SetValue(id);
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
