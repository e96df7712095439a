#pragma once

#include <Nm/Future.h>
#include <Nm/IdType.h>
#include <Nm/NonBlockingNotificationRegistration3ArgumentsBufferBase.h>
#include <Nm/NonBlockingNotificationSendingAdapter.h>
#include <Nm/Severity.h>

#include <Kiv/BasicString.h>
#include <Kiv/DateTime.h>
#include <Kiv/Export.h>

#include <cstdint>
#include <memory>

namespace Kiv::System::Nm
{
/// The base of what time-critical code keeps for one notification that it sends again and again. The
/// caller builds no payload: it leaves the raw arguments in an arguments buffer and hands over a plain
/// function and a position, and the worker thread builds the payload later. As long as all goes well a
/// send allocates nothing: the Future of the newest send is made once and reused.
///
/// Not thread-safe: the object belongs to one thread at a time. Before a send the caller checks
/// IsReadyToSend() and IsCompleted() (or that the Future of the last send is invalid, which means that
/// the ring buffer refused it): a send reuses the Future and must not overlap the previous one.
class KIV_API NonBlockingNotificationRegistration3Base
{
public:
    enum class RegistrationState : std::uint8_t
    {
        Created = 0,
        Registered = 1,
        Sending = 2,
        Unregistering = 3
    };

    using ArgumentsBuffer = NonBlockingNotificationRegistration3ArgumentsBufferBase;
    using InsertResult = ArgumentsBuffer::InsertResult;
    using CreatePayloadFunction = NonBlockingNotificationSendingAdapter::CreatePayloadFunction;

    /// An object without an adapter: it can never register or send.
    NonBlockingNotificationRegistration3Base();
    explicit NonBlockingNotificationRegistration3Base(
        std::unique_ptr<NonBlockingNotificationSendingAdapter> sendingAdapter);
    NonBlockingNotificationRegistration3Base(NonBlockingNotificationRegistration3Base&& other) noexcept;
    NonBlockingNotificationRegistration3Base& operator=(
        NonBlockingNotificationRegistration3Base&& other) noexcept;
    NonBlockingNotificationRegistration3Base(const NonBlockingNotificationRegistration3Base&) = delete;
    NonBlockingNotificationRegistration3Base& operator=(const NonBlockingNotificationRegistration3Base&) =
        delete;
    /// Does not unregister: a record still queued keeps its Future and the arguments buffer alive.
    ~NonBlockingNotificationRegistration3Base();

    /// False only for an object that was moved from.
    bool HasImpl() const noexcept;

    /// Registers with the blocking operation of the adapter: not for time-critical code. An exception of
    /// the registration reaches the caller and leaves the object as it was.
    void Register(const String& notificationName, const String& senderName, Severity severity,
                  PayloadTypeId payloadTypeId);

    /// Queues the unregistration and gives the adapter up; the object can't send any more. Does nothing
    /// unless IsReadyToSend().
    void Unregister();

    /// There is an adapter and a registered name id.
    bool IsReadyToSend() const noexcept;

    /// No request of this object is under way: true before any send, and once the worker has finished
    /// the newest send or the unregistration. False for a moved-from object.
    bool IsCompleted() const noexcept;

    /// The operations below raise InvalidOperationException on a moved-from object.
    NotificationNameId GetNotificationNameIdInternal() const;

    /// The state of the newest send. IsValid() false: no send since the last reset, or the ring buffer
    /// refused it.
    const Future<NotificationId>& GetFutureNotificationId() const;

    /// Replaces the Future of the newest send with a new, invalid one. This allocates: it is for the rare
    /// case. The old state lives on as long as a record holds it.
    void ResetFutureNotificationId();

    /// The id of the newest send; raises as Future::GetValue when it is not finished, was dropped, or
    /// ended with an exception.
    NotificationId GetLastNotificationId() const;

    /// Queues a send whose payload `createPayload` builds on the worker from `argumentsBuffer` at
    /// `insertResult.position`. If the buffer could not take the arguments, only resets the Future.
    void SendNotificationInternal(const DateTime& timestamp, std::shared_ptr<ArgumentsBuffer> argumentsBuffer,
                                  InsertResult insertResult, CreatePayloadFunction createPayload);

private:
    class Impl;

    Impl& GetImpl() const;

    std::unique_ptr<Impl> pImpl;
};
}  // namespace Kiv::System::Nm
