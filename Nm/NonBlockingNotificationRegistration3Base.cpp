#include <Nm/NonBlockingNotificationRegistration3Base.h>

#include <Kiv/Exceptions.h>

#include <utility>

namespace Kiv::System::Nm
{
class NonBlockingNotificationRegistration3Base::Impl
{
public:
    explicit Impl(std::unique_ptr<NonBlockingNotificationSendingAdapter> sendingAdapter)
        : sendingAdapter(std::move(sendingAdapter))
    {
    }

    bool HasSendingAdapter() const noexcept { return sendingAdapter != nullptr; }
    NonBlockingNotificationSendingAdapter& GetSendingAdapter() const
    {
        if (sendingAdapter == nullptr)
        {
            throw InvalidOperationException(
                "NonBlockingNotificationRegistration3Base: there is no sending adapter; the object was built "
                "without one or has been unregistered.");
        }
        return *sendingAdapter;
    }
    NotificationNameId GetNotificationNameId() const noexcept { return notificationNameId; }

    void Register(const String& notificationName, const String& senderName, Severity severity,
                  PayloadTypeId payloadTypeId)
    {
        if (!HasSendingAdapter())
        {
            return;
        }
        const NotificationNameId id =
            sendingAdapter->RegisterNotification(notificationName, senderName, severity, payloadTypeId);
        state = RegistrationState::Registered;
        notificationNameId = id;
    }

    bool IsReadyToSend() const noexcept { return HasSendingAdapter() && notificationNameId.GetValue() != 0; }

    bool IsCompleted() const noexcept
    {
        switch (state)
        {
            case RegistrationState::Created:
            case RegistrationState::Registered:
                return true;
            case RegistrationState::Sending:
                return futureNotificationId.HasValue();
            case RegistrationState::Unregistering:
                return futureUnregister.HasValue();
        }
        return false;
    }

    const Future<NotificationId>& GetFutureNotificationId() const noexcept { return futureNotificationId; }

    void ResetFutureNotificationId() { futureNotificationId = Future<NotificationId>(); }

    void SendNotificationInternal(const DateTime& timestamp, std::shared_ptr<ArgumentsBuffer> argumentsBuffer,
                                  InsertResult insertResult, CreatePayloadFunction createPayload)
    {
        if (!insertResult.inserted)
        {
            ResetFutureNotificationId();
            return;
        }
        // The record shares the state of futureNotificationId: no new Future is made.
        GetSendingAdapter().NonBlockingSendNotification(
            notificationNameId, timestamp, createPayload,
            NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg{std::move(argumentsBuffer),
                                                                           insertResult.position},
            futureNotificationId);
        state = RegistrationState::Sending;
    }

    void Unregister()
    {
        if (!IsReadyToSend())
        {
            return;
        }
        sendingAdapter->NonBlockingUnregisterNotification(notificationNameId, futureUnregister);
        notificationNameId = NotificationNameId();
        ResetFutureNotificationId();
        std::unique_ptr<NonBlockingNotificationSendingAdapter> adapter = std::move(sendingAdapter);
        state = RegistrationState::Unregistering;
    }

private:
    std::unique_ptr<NonBlockingNotificationSendingAdapter> sendingAdapter;
    NotificationNameId notificationNameId;
    Future<NotificationId> futureNotificationId;
    Future<void> futureUnregister;
    RegistrationState state = RegistrationState::Created;
};

NonBlockingNotificationRegistration3Base::NonBlockingNotificationRegistration3Base()
    : pImpl(std::make_unique<Impl>(nullptr))
{
}

NonBlockingNotificationRegistration3Base::NonBlockingNotificationRegistration3Base(
    std::unique_ptr<NonBlockingNotificationSendingAdapter> sendingAdapter)
    : pImpl(std::make_unique<Impl>(std::move(sendingAdapter)))
{
}

NonBlockingNotificationRegistration3Base::NonBlockingNotificationRegistration3Base(
    NonBlockingNotificationRegistration3Base&& other) noexcept = default;

NonBlockingNotificationRegistration3Base& NonBlockingNotificationRegistration3Base::operator=(
    NonBlockingNotificationRegistration3Base&& other) noexcept = default;

NonBlockingNotificationRegistration3Base::~NonBlockingNotificationRegistration3Base() = default;

bool NonBlockingNotificationRegistration3Base::HasImpl() const noexcept
{
    return pImpl != nullptr;
}

void NonBlockingNotificationRegistration3Base::Register(const String& notificationName,
                                                        const String& senderName, Severity severity,
                                                        PayloadTypeId payloadTypeId)
{
    if (pImpl != nullptr)
    {
        pImpl->Register(notificationName, senderName, severity, payloadTypeId);
    }
}

void NonBlockingNotificationRegistration3Base::Unregister()
{
    if (pImpl != nullptr)
    {
        pImpl->Unregister();
    }
}

bool NonBlockingNotificationRegistration3Base::IsReadyToSend() const noexcept
{
    return pImpl != nullptr && pImpl->IsReadyToSend();
}

bool NonBlockingNotificationRegistration3Base::IsCompleted() const noexcept
{
    return pImpl != nullptr && pImpl->IsCompleted();
}

NotificationNameId NonBlockingNotificationRegistration3Base::GetNotificationNameIdInternal() const
{
    return GetImpl().GetNotificationNameId();
}

const Future<NotificationId>& NonBlockingNotificationRegistration3Base::GetFutureNotificationId() const
{
    return GetImpl().GetFutureNotificationId();
}

void NonBlockingNotificationRegistration3Base::ResetFutureNotificationId()
{
    GetImpl().ResetFutureNotificationId();
}

NotificationId NonBlockingNotificationRegistration3Base::GetLastNotificationId() const
{
    return GetFutureNotificationId().GetValue();
}

void NonBlockingNotificationRegistration3Base::SendNotificationInternal(
    const DateTime& timestamp, std::shared_ptr<ArgumentsBuffer> argumentsBuffer, InsertResult insertResult,
    CreatePayloadFunction createPayload)
{
    GetImpl().SendNotificationInternal(timestamp, std::move(argumentsBuffer), insertResult, createPayload);
}

NonBlockingNotificationRegistration3Base::Impl& NonBlockingNotificationRegistration3Base::GetImpl() const
{
    if (pImpl == nullptr)
    {
        throw InvalidOperationException(
            "NonBlockingNotificationRegistration3Base: the object has been moved from.");
    }
    return *pImpl;
}
}  // namespace Kiv::System::Nm
