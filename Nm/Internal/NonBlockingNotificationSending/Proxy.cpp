#include <Nm/INotificationSending.h>
#include <Nm/IPayload.h>
#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>
#include <Nm/Internal/NonBlockingNotificationSending/Tracepoints.h>

#include <Kiv/Exception.h>
#include <Kiv/Exceptions.h>

#include <utility>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
using Commons::Logging::LogLevel;
using Commons::Threading::MakeDelegate;
using Commons::Threading::Thread;
using Commons::Threading::ThreadSettings;

namespace
{
ThreadSettings WorkerSettings()
{
    // Name only: no priority, affinity or stack size is asked for.
    ThreadSettings settings;
    settings.name = Proxy::ThreadName;
    return settings;
}
}  // namespace

Proxy::Proxy(INotificationSending& notificationSending, unsigned int queueLength)
    : notificationSending(notificationSending),
      queue(queueLength),
      thread(MakeDelegate(this, &Proxy::Worker), nullptr, WorkerSettings())
{
    thread.Start();
}

Proxy::~Proxy()
{
    Stop();
}

void Proxy::Stop() noexcept
{
    if (stopped)
    {
        return;
    }
    stopped = true;
    const std::uint32_t dropped = queue.RequestStop();
    Log(LogLevel::Info, "Thread {} stops; {} queued records are dropped without running.", thread.GetName(),
        dropped);
    try
    {
        thread.Join();
    }
    catch (const Exception& e)
    {
        Log(LogLevel::Error, "Failed to join thread {}: {}", thread.GetName(), e.ToString());
    }
    catch (...)
    {
        Log(LogLevel::Error, "Failed to join thread {}.", thread.GetName());
    }
}

Future<NotificationNameId> Proxy::NonBlockingRegisterNotification(const String& notificationName,
                                                                  const String& senderName, Severity severity,
                                                                  PayloadTypeId payloadTypeId)
{
    return EnqueueCall<RegisterNotificationCall>(notificationName, senderName, severity, payloadTypeId);
}

void Proxy::NonBlockingRegisterNotification(const String& notificationName, const String& senderName,
                                            Severity severity, PayloadTypeId payloadTypeId,
                                            Future<NotificationNameId> future)
{
    EnqueueCallWithFuture<RegisterNotificationCall>(std::move(future), notificationName, senderName, severity,
                                                    payloadTypeId);
}

Future<void> Proxy::NonBlockingUnregisterNotification(NotificationNameId notificationNameId)
{
    return EnqueueCall<UnregisterNotificationCall>(notificationNameId);
}

void Proxy::NonBlockingUnregisterNotification(NotificationNameId notificationNameId, Future<void> future)
{
    EnqueueCallWithFuture<UnregisterNotificationCall>(std::move(future), notificationNameId);
}

Future<NotificationId> Proxy::NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                          DateTime timestamp,
                                                          const std::vector<TulVariant<512>>& payload)
{
    return EnqueueCall<SendNotificationCallRawPayload>(notificationNameId, timestamp,
                                                       std::vector<TulVariant<512>>(payload));
}

Future<NotificationId> Proxy::NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                          DateTime timestamp, const IPayload& payload)
{
    return NonBlockingSendNotification(notificationNameId, timestamp, payload.GetAsRawPayloadType());
}

void Proxy::NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                        std::function<std::vector<TulVariant<512>>()> createPayload,
                                        Future<NotificationId> future)
{
    EnqueueCallWithFuture<SendNotificationCallCreatePayloadStdFunction>(std::move(future), notificationNameId,
                                                                        timestamp, std::move(createPayload));
}

void Proxy::NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                        CreatePayloadFunction createPayload, CreatePayloadFunctorArg arg,
                                        Future<NotificationId> future)
{
    EnqueueCallWithFuture<SendNotificationCallCreatePayloadRawPointer>(
        std::move(future), notificationNameId, timestamp, createPayload, std::move(arg));
}

std::uint32_t Proxy::GetMaxQueueLength() const
{
    return queue.GetCapacity();
}

template <class TCall, class... TArgs>
Future<typename TCall::result_type> Proxy::EnqueueCall(TArgs&&... args)
{
    KIV_NM_TRACEPOINT(NmNonBlockingProxyEnqueueCall);
    FunctionCallVariant call(std::in_place_type<TCall>, std::forward<TArgs>(args)...);
    Future<typename TCall::result_type> future = std::get<TCall>(call).GetFuture();
    KIV_NM_TRACEPOINT(NmNonBlockingProxyCallCreated);
    const bool pushed = queue.TryPush(call);
    // Fires whatever the push gave: the time between the last two events is the time at the buffer.
    KIV_NM_TRACEPOINT(NmNonBlockingProxyCallEnqueued);
    if (!pushed)
    {
        // The record dies with `call`; the caller learns of it only through IsValid().
        return Future<typename TCall::result_type>();
    }
    return future;
}

template <class TCall, class... TArgs>
void Proxy::EnqueueCallWithFuture(Future<typename TCall::result_type> future, TArgs&&... args)
{
    KIV_NM_TRACEPOINT(NmNonBlockingProxyEnqueueCallWithFuture);
    // The record's promise takes the caller's state over and puts it back to pending.
    FunctionCallVariant call(std::in_place_type<TCall>, std::move(future), std::forward<TArgs>(args)...);
    KIV_NM_TRACEPOINT(NmNonBlockingProxyCallCreated);
    if (!queue.TryPush(call))
    {
        // The caller holds a copy of this state and sees the refusal as IsValid() false.
        Future<typename TCall::result_type> refused = std::get<TCall>(call).GetFuture();
        Promise<typename TCall::result_type>::Clear(refused, false);
    }
    KIV_NM_TRACEPOINT(NmNonBlockingProxyCallEnqueued);
}

void Proxy::Worker(void*)
{
    // A finished record stays here until the next one replaces it.
    FunctionCallVariant task;
    while (queue.WaitAndPop(task))
    {
        try
        {
            ExecuteTask(task);
        }
        catch (const Exception& e)
        {
            const Thread* current = Thread::pCurrentThread;
            Log(LogLevel::Error, "Caught exception in Thread {}: {}",
                current != nullptr ? current->GetName() : String(), e.ToString());
        }
        // Anything else leaves the worker: no further record is taken and the buffer fills up.
    }
}

void Proxy::ExecuteTask(FunctionCallVariant& task)
{
    std::visit([this](const auto& call) { call.Execute(notificationSending); }, task);
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
