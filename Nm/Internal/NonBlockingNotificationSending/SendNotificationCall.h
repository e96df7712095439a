#pragma once

#include <Nm/IdType.h>
#include <Nm/Internal/NonBlockingNotificationSending/FunctionCall.h>
#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>

#include <vector>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// A notification. The payload is taken once, on the worker; then the send is tried until the broker's
/// queue takes it, with a pause between tries that doubles from 1 up to 256 units of Thread::Sleep
/// (milliseconds) and stays there. There is no limit on the tries and no look at a stop request: a
/// notification that the ring buffer accepted is not lost to a full broker queue. The stalled worker lets
/// the ring buffer fill, and from then on callers are refused: that is the path's back-pressure.
class KIV_API SendNotificationCall : public FunctionCall<NotificationId>
{
public:
    /// Pauses the worker between two tries.
    using SleepFunction = void (*)(unsigned int duration);

    static constexpr int MaxSleepDuration = 256;

    ~SendNotificationCall() override = default;

    /// True unless `id` is 0, which means the broker's queue was full and the notification dropped.
    bool NotificationWasSent(NotificationId id) const noexcept { return id.GetValue() != 0; }

    /// The pause after one of `duration`: twice as long, but at most MaxSleepDuration.
    int IncreaseSleepDuration(int duration) const noexcept
    {
        return duration >= MaxSleepDuration / 2 ? MaxSleepDuration : 2 * duration;
    }

    /// Replaces the pause of all send records of the process and returns the one before; null restores
    /// Thread::Sleep. Tests use it to see the sequence of pauses without waiting for them.
    static SleepFunction SetSleepFunction(SleepFunction sleep) noexcept;
    /// The pause between two tries: Thread::Sleep, or what SetSleepFunction put in its place.
    static void Pause(unsigned int duration);

    // What a batch of sends needs of each record: the worker builds the payloads, sends them together and
    // hands each result back.

    NotificationNameId GetNotificationNameId() const noexcept { return notificationNameId; }
    DateTime GetTimestamp() const noexcept { return timestamp; }
    /// Builds the payload into `payload`, once. A failure of the Kiv::Exception family finishes the
    /// Future, as Execute would, and gives false; nothing is to be sent then.
    bool BuildPayload(std::vector<TulVariant<512>>& payload) const;
    /// The rest of Execute with a payload built already: sends alone, tries again while refused, and
    /// finishes the Future with the id or the failure.
    void ExecuteWithPayload(INotificationSending& sending, const std::vector<TulVariant<512>>& payload) const;
    /// Finishes the Future with the id that a send of this record got.
    void SetSent(NotificationId id) const { GetPromise().SetValue(id); }

protected:
    SendNotificationCall(const NotificationNameId& notificationNameId, const DateTime& timestamp);
    SendNotificationCall(Future<NotificationId> future, const NotificationNameId& notificationNameId,
                         const DateTime& timestamp);
    SendNotificationCall(SendNotificationCall&&) noexcept = default;
    SendNotificationCall& operator=(SendNotificationCall&&) noexcept = default;

    void DoExecute(INotificationSending& sending) const override;

    /// The payload of the notification; called once, on the worker.
    virtual std::vector<TulVariant<512>> GetPayload() const = 0;

private:
    void SendUntilTaken(INotificationSending& sending, const std::vector<TulVariant<512>>& payload) const;

    NotificationNameId notificationNameId;
    /// The caller's time stamp; a retry does not renew it.
    DateTime timestamp;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
