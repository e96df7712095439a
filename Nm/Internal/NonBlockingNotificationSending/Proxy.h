#pragma once

#include <Nm/INonBlockingNotificationSending.h>
#include <Nm/Internal/NonBlockingNotificationSending/FunctionCallVariant.h>
#include <Nm/Internal/NonBlockingNotificationSending/IBatchSending.h>
#include <Nm/Internal/NonBlockingNotificationSending/ThreadSafeRingBuffer.h>
#include <Nm/NonBlockingNotificationSendingAdapter.h>

#include <Kiv/Export.h>
#include <Kiv/Logging/Loggable.h>
#include <Kiv/Threading/Thread.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace Kiv::System::Nm
{
class INotificationSending;
}

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// The non-blocking path of a process. On the caller's thread a request becomes a call record that is
/// moved into a ring buffer of fixed slots, and the caller gets a Future at once; the caller never waits
/// for the broker, a service, a subscriber or the record being run. One worker thread, "NmNonBlocking",
/// runs the records in the order they entered the buffer against the blocking INotificationSending.
///
/// A full buffer is no error: the request is dropped and the Future is invalid (IsValid() false).
/// Records still queued when the proxy is destroyed are dropped without running; their Futures stay
/// pending for ever.
///
/// Where the INotificationSending also offers IBatchSending, the worker takes a send together with the
/// sends queued behind it, up to MaxNotificationBatchLength, and hands them to the broker in one call;
/// each Future ends as if its record had been sent alone, and the order holds. A lone send, and every
/// registration and unregistration, runs alone.
class KIV_API Proxy : public INonBlockingNotificationSending,
                      private Commons::Logging::Loggable<Proxy, false, false>
{
public:
    static constexpr const char* ThreadName = "NmNonBlocking";

    using CreatePayloadFunctorArg = NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg;
    using CreatePayloadFunction = NonBlockingNotificationSendingAdapter::CreatePayloadFunction;

    /// `notificationSending` is not owned and must outlive the proxy; so must `batchSending`, which, when
    /// null, is looked for in `notificationSending`. Returns with the worker running.
    Proxy(INotificationSending& notificationSending, unsigned int queueLength,
          IBatchSending* batchSending = nullptr);
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;
    /// Stops the worker after the record it is running, if any, and drops what is still queued. Nobody
    /// may call the proxy any more once this has begun.
    ~Proxy() override;
    /// What the destructor does, ahead of it: the owner stops the worker while everything that a record
    /// being run still uses is there. Waits for a send in retry. Once is enough; later calls return.
    void Stop() noexcept;

    Future<NotificationNameId> NonBlockingRegisterNotification(const String& notificationName,
                                                               const String& senderName, Severity severity,
                                                               PayloadTypeId payloadTypeId) override;

    void NonBlockingRegisterNotification(const String& notificationName, const String& senderName,
                                         Severity severity, PayloadTypeId payloadTypeId,
                                         Future<NotificationNameId> future);

    Future<void> NonBlockingUnregisterNotification(NotificationNameId notificationNameId) override;

    void NonBlockingUnregisterNotification(NotificationNameId notificationNameId, Future<void> future);

    /// The vector is copied into the record on the caller's thread.
    Future<NotificationId> NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                       DateTime timestamp,
                                                       const std::vector<TulVariant<512>>& payload) override;

    /// Reduces the payload to its fields on the caller's thread, then as the vector form.
    Future<NotificationId> NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                       DateTime timestamp, const IPayload& payload) override;

    /// The function object is moved into the record and builds the payload on the worker.
    void NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                     std::function<std::vector<TulVariant<512>>()> createPayload,
                                     Future<NotificationId> future);

    /// The cheapest form: with a Future made ahead of time nothing is allocated on the caller's thread.
    void NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                     CreatePayloadFunction createPayload, CreatePayloadFunctorArg arg,
                                     Future<NotificationId> future);

    /// The capacity of the ring buffer, the same for the whole life of the proxy.
    std::uint32_t GetMaxQueueLength() const;

private:
    void Worker(void*);
    void ExecuteTask(FunctionCallVariant& task);

    /// What a batch needs on the worker, kept from one batch to the next so as not to allocate again.
    struct Batch
    {
        std::vector<BatchedNotification> notifications;
        std::vector<const SendNotificationCall*> calls;
    };
    /// The first `count` records of `tasks`, all sends: builds their payloads, then sends them in order.
    void SendBatch(std::vector<FunctionCallVariant>& tasks, std::uint32_t count, Batch& batch);
    void SendInOrder(Batch& batch);

    template <class TCall, class... TArgs>
    Future<typename TCall::result_type> EnqueueCall(TArgs&&... args);

    template <class TCall, class... TArgs>
    void EnqueueCallWithFuture(Future<typename TCall::result_type> future, TArgs&&... args);

    INotificationSending& notificationSending;
    IBatchSending* batchSending;
    ThreadSafeRingBuffer<FunctionCallVariant> queue;
    Commons::Threading::Thread thread;
    bool stopped = false;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
