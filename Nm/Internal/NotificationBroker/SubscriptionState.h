#pragma once

#include <Nm/IdType.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <memory>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
class NotificationRegistrationManager;
class OwnNotifications;

/// How strictly the broker takes subscriptions. Relaxed during set-up: a name may be wanted before anybody
/// registers it. Checked afterwards: subscribing to what nobody registered, or to a withdrawn
/// registration, is reported and refused.
class KIV_API SubscriptionState
{
public:
    static std::unique_ptr<SubscriptionState> Relaxed(NotificationRegistrationManager& manager,
                                                      OwnNotifications& ownNotifications);
    static std::unique_ptr<SubscriptionState> Checked(NotificationRegistrationManager& manager,
                                                      OwnNotifications& ownNotifications);

    SubscriptionState(NotificationRegistrationManager& manager, OwnNotifications& ownNotifications);
    virtual ~SubscriptionState();
    virtual bool IsChecked() const = 0;
    virtual NotificationNameId GetNotificationNameId(const String& notificationName) const = 0;
    /// The check at the making of a dispatch row.
    virtual void EnsureRegisteredNotificationNameId(const NotificationNameId& notificationNameId) = 0;
    virtual void OnSubscribeToNotRegistered(const String& notificationName) = 0;
    virtual void OnSubscribeToUnregistered(const String& notificationName) = 0;

protected:
    /// Passes a Registered row; hands a Subscribed or Unregistered one to the hooks.
    void CheckRegistrationStatus(const NotificationNameId& notificationNameId);

    NotificationRegistrationManager& manager;
    OwnNotifications& ownNotifications;
};

class KIV_API SubscriptionStateRelaxed : public SubscriptionState
{
public:
    using SubscriptionState::SubscriptionState;

    bool IsChecked() const override;
    /// An unknown well-formed name is made.
    NotificationNameId GetNotificationNameId(const String& notificationName) const override;
    /// A name that nobody registered gets a Subscribed row.
    void EnsureRegisteredNotificationNameId(const NotificationNameId& notificationNameId) override;
    void OnSubscribeToNotRegistered(const String& notificationName) override;
    void OnSubscribeToUnregistered(const String& notificationName) override;
};

class KIV_API SubscriptionStateChecked : public SubscriptionState
{
public:
    using SubscriptionState::SubscriptionState;

    bool IsChecked() const override;
    /// An unknown name is refused.
    NotificationNameId GetNotificationNameId(const String& notificationName) const override;
    /// A name without a row (a parent) passes; a row of the wrong status is reported and refused.
    void EnsureRegisteredNotificationNameId(const NotificationNameId& notificationNameId) override;
    void OnSubscribeToNotRegistered(const String& notificationName) override;
    void OnSubscribeToUnregistered(const String& notificationName) override;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
