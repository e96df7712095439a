#pragma once

#include <Nm/INotificationSending.h>
#include <Nm/IPayload.h>
#include <Nm/IdType.h>
#include <Nm/Severity.h>

#include <Kiv/BasicString.h>
#include <Kiv/DateTime.h>
#include <Kiv/Exception.h>
#include <Kiv/Logging/Loggable.h>

#include <utility>

namespace Kiv::System::Nm
{
/// What every typed registration shares: the registered name and how it is given up.
template <class TDerived>
class NotificationRegistrationBase
    : public Commons::Logging::Loggable<NotificationRegistrationBase<TDerived>, false, false>
{
public:
    virtual ~NotificationRegistrationBase() = default;

    virtual NotificationNameId GetNotificationNameId() const = 0;

    /// Unregisters; a failure is logged and the id kept, so that a later call tries again.
    void Dispose() noexcept
    {
        try
        {
            DisposeImpl();
        }
        catch (const Exception& e)
        {
            this->Log(Commons::Logging::LogLevel::Error,
                      "Caught exception while unregistering notificationName={}: {}", notificationName,
                      e.ToString());
        }
        catch (...)
        {
            this->Log(Commons::Logging::LogLevel::Error,
                      "Caught exception while unregistering notificationName={}", notificationName);
        }
    }

    const String& GetNotificationName() const { return notificationName; }
    const String& GetSenderName() const { return senderName; }
    Severity GetSeverity() const { return severity; }

protected:
    NotificationRegistrationBase() = default;
    NotificationRegistrationBase(String notificationName, String senderName, Severity severity)
        : notificationName(std::move(notificationName)), senderName(std::move(senderName)), severity(severity)
    {
    }
    NotificationRegistrationBase(NotificationRegistrationBase&&) = default;
    NotificationRegistrationBase& operator=(NotificationRegistrationBase&&) = default;

    virtual void DisposeImpl() = 0;

private:
    String notificationName;
    String senderName;
    Severity severity{};
};

/// A name registered with payload class `T` for as long as this object lives: it registers in its
/// constructor, sends under the name, and unregisters when disposed or destroyed. Movable; a moved-from
/// object neither sends nor unregisters. It must not outlive its INotificationSending.
template <class T>
class NotificationRegistration : public NotificationRegistrationBase<NotificationRegistration<T>>
{
public:
    /// Empty: not registered; meant as the target of a move assignment.
    NotificationRegistration() = default;
    /// Registers; the broker's refusal leaves the constructor unchanged.
    NotificationRegistration(const String& notificationName, const String& senderName, Severity severity,
                             INotificationSending& notificationSending)
        : NotificationRegistrationBase<NotificationRegistration<T>>(notificationName, senderName, severity),
          sending(&notificationSending)
    {
        const PayloadTypeId payloadTypeId = T::GetPayloadTypeId();
        notificationNameId =
            sending->RegisterNotification(notificationName, senderName, severity, payloadTypeId);
    }
    NotificationRegistration(const NotificationRegistration&) = delete;
    NotificationRegistration& operator=(const NotificationRegistration&) = delete;
    NotificationRegistration(NotificationRegistration&& other) noexcept
        : NotificationRegistrationBase<NotificationRegistration<T>>(std::move(other)),
          sending(std::exchange(other.sending, nullptr)),
          notificationNameId(std::exchange(other.notificationNameId, NotificationNameId(0)))
    {
    }
    /// Overwrites without unregistering what this object held: only an empty target is meant.
    NotificationRegistration& operator=(NotificationRegistration&& other) noexcept
    {
        if (this != &other)
        {
            NotificationRegistrationBase<NotificationRegistration<T>>::operator=(std::move(other));
            sending = std::exchange(other.sending, nullptr);
            notificationNameId = std::exchange(other.notificationNameId, NotificationNameId(0));
        }
        return *this;
    }
    ~NotificationRegistration() override { this->Dispose(); }

    NotificationNameId GetNotificationNameId() const override { return notificationNameId; }
    bool IsRegistered() const { return sending != nullptr && notificationNameId != NotificationNameId(0); }

    /// Sends `payload` stamped with the current time; the notification's id, or 0 when the broker's
    /// queue was full. Does nothing, and returns 0, when not registered.
    NotificationId SendNotification(const T& payload) const
    {
        const DateTime timestamp = DateTime::GetUtcNow();
        if (!IsRegistered())
        {
            return NotificationId(0);
        }
        return sending->SendNotification(notificationNameId, timestamp,
                                         static_cast<const IPayload&>(payload));
    }

protected:
    void DisposeImpl() override
    {
        if (IsRegistered())
        {
            sending->UnregisterNotification(notificationNameId);
            notificationNameId = NotificationNameId(0);
        }
    }

private:
    INotificationSending* sending = nullptr;
    NotificationNameId notificationNameId{};
};
}  // namespace Kiv::System::Nm
