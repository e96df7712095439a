#include <Nm/INotificationSending.h>
#include <Nm/IPayload.h>
#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>
#include <Nm/Internal/NonBlockingNotificationSending/Tracepoints.h>

#include <Kiv/Exception.h>
#include <Kiv/Exceptions.h>

#include <cstddef>
#include <exception>
#include <type_traits>
#include <utility>
#include <variant>

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

/// The record as a send, or null for a registration, an unregistration or an empty slot.
const SendNotificationCall* AsSendCall(const FunctionCallVariant& task)
{
    return std::visit(
        [](const auto& call) -> const SendNotificationCall*
        {
            if constexpr (std::is_base_of_v<SendNotificationCall, std::decay_t<decltype(call)>>)
            {
                return &call;
            }
            else
            {
                return nullptr;
            }
        },
        task);
}

bool IsSend(const FunctionCallVariant& task)
{
    return AsSendCall(task) != nullptr;
}

/// An answer that does not fit the batch would mix up the records' results.
void EnsureAnswerFits(const NotificationBatchAnswer& answer, std::size_t batchLength)
{
    const bool fits = answer.stop == NotificationBatchAnswer::Stop::None ? answer.ids.size() == batchLength
                                                                         : answer.ids.size() < batchLength;
    if (!fits)
    {
        throw InvalidOperationException("Proxy: the broker answered {0} ids to a batch of {1} notifications",
                                        answer.ids.size(), batchLength);
    }
}
}  // namespace

Proxy::Proxy(INotificationSending& notificationSending, unsigned int queueLength, IBatchSending* batchSending)
    : notificationSending(notificationSending),
      batchSending(batchSending != nullptr ? batchSending
                                           : dynamic_cast<IBatchSending*>(&notificationSending)),
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
    // A finished record stays in its slot here until a later one replaces it or its batch is done.
    std::vector<FunctionCallVariant> tasks(batchSending != nullptr ? MaxNotificationBatchLength : 1);
    Batch batch;
    batch.notifications.reserve(tasks.size());
    batch.calls.reserve(tasks.size());
    for (;;)
    {
        const std::uint32_t count = queue.WaitAndPopRun(tasks, IsSend);
        if (count == 0)
        {
            break;
        }
        try
        {
            if (count == 1)
            {
                ExecuteTask(tasks[0]);
            }
            else
            {
                SendBatch(tasks, count, batch);
            }
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

void Proxy::SendBatch(std::vector<FunctionCallVariant>& tasks, std::uint32_t count, Batch& batch)
{
    batch.notifications.clear();
    batch.calls.clear();
    std::exception_ptr foreignFailure;
    for (std::uint32_t index = 0; index < count; ++index)
    {
        const SendNotificationCall* call = AsSendCall(tasks[index]);
        BatchedNotification& notification = batch.notifications.emplace_back();
        notification.notificationNameId = call->GetNotificationNameId();
        notification.timestamp = call->GetTimestamp();
        bool built = false;
        try
        {
            built = call->BuildPayload(notification.payload);
        }
        catch (...)
        {
            // As one by one: those before it go out, and then the failure ends the worker.
            foreignFailure = std::current_exception();
        }
        if (!built)
        {
            // Its Future holds the failure already, and nothing of it is sent.
            batch.notifications.pop_back();
            if (foreignFailure)
            {
                break;
            }
            continue;
        }
        batch.calls.push_back(call);
    }
    SendInOrder(batch);
    for (std::uint32_t index = 1; index < count; ++index)
    {
        tasks[index].emplace<EmptyFunctionCall>();
    }
    if (foreignFailure)
    {
        std::rethrow_exception(foreignFailure);
    }
}

void Proxy::SendInOrder(Batch& batch)
{
    std::vector<BatchedNotification>& notifications = batch.notifications;
    std::vector<const SendNotificationCall*>& calls = batch.calls;
    int sleepDuration = 1;
    while (!notifications.empty())
    {
        if (notifications.size() == 1)
        {
            calls[0]->ExecuteWithPayload(notificationSending, notifications[0].payload);
            break;
        }
        NotificationBatchAnswer answer;
        try
        {
            answer = batchSending->SendNotifications(notifications);
            EnsureAnswerFits(answer, notifications.size());
        }
        catch (const Exception&)
        {
            // None was taken (a value the wire refuses, say), or the broker is gone: alone, each gets what
            // a single send gives.
            for (std::size_t index = 0; index < notifications.size(); ++index)
            {
                calls[index]->ExecuteWithPayload(notificationSending, notifications[index].payload);
            }
            break;
        }
        std::size_t done = answer.ids.size();
        for (std::size_t index = 0; index < done; ++index)
        {
            calls[index]->SetSent(answer.ids[index]);
        }
        if (answer.stop == NotificationBatchAnswer::Stop::Failed)
        {
            // Alone, it fails in a single send's words.
            calls[done]->ExecuteWithPayload(notificationSending, notifications[done].payload);
            ++done;
        }
        else if (answer.stop == NotificationBatchAnswer::Stop::Refused)
        {
            // The refused one is tried again first, after a pause that grows while it is refused.
            sleepDuration = done > 0 ? 1 : sleepDuration;
            SendNotificationCall::Pause(static_cast<unsigned int>(sleepDuration));
            sleepDuration = calls[done]->IncreaseSleepDuration(sleepDuration);
        }
        notifications.erase(notifications.begin(), notifications.begin() + static_cast<std::ptrdiff_t>(done));
        calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(done));
        if (!notifications.empty() && queue.IsStopRequested())
        {
            // As one by one: a send being tried again goes on until taken, the records behind it are
            // dropped.
            const std::size_t kept = answer.stop == NotificationBatchAnswer::Stop::Refused ? 1 : 0;
            notifications.resize(kept);
            calls.resize(kept);
        }
    }
}

void Proxy::ExecuteTask(FunctionCallVariant& task)
{
    std::visit([this](const auto& call) { call.Execute(notificationSending); }, task);
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
