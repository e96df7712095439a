#include <Nm/Internal/NotificationBroker/NotificationRegistrationManager.h>
#include <Nm/Internal/NotificationBroker/OwnNotifications.h>
#include <Nm/Internal/NotificationBroker/SubscriptionState.h>

#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
std::unique_ptr<SubscriptionState> SubscriptionState::Relaxed(NotificationRegistrationManager& manager,
                                                              OwnNotifications& ownNotifications)
{
    return std::make_unique<SubscriptionStateRelaxed>(manager, ownNotifications);
}

std::unique_ptr<SubscriptionState> SubscriptionState::Checked(NotificationRegistrationManager& manager,
                                                              OwnNotifications& ownNotifications)
{
    return std::make_unique<SubscriptionStateChecked>(manager, ownNotifications);
}

SubscriptionState::SubscriptionState(NotificationRegistrationManager& manager,
                                     OwnNotifications& ownNotifications)
    : manager(manager), ownNotifications(ownNotifications)
{
}

SubscriptionState::~SubscriptionState() = default;

void SubscriptionState::CheckRegistrationStatus(const NotificationNameId& notificationNameId)
{
    const NotificationRegistrationInfo registration = manager.GetNotificationRegistration(notificationNameId);
    if (registration.GetStatus() == NotificationRegistrationStatus::Subscribed)
    {
        OnSubscribeToNotRegistered(registration.GetNotificationName());
    }
    else if (registration.GetStatus() == NotificationRegistrationStatus::Unregistered)
    {
        OnSubscribeToUnregistered(registration.GetNotificationName());
    }
}

bool SubscriptionStateRelaxed::IsChecked() const
{
    return false;
}

NotificationNameId SubscriptionStateRelaxed::GetNotificationNameId(const String& notificationName) const
{
    return manager.AddOrGetNotificationNameId(notificationName);
}

void SubscriptionStateRelaxed::EnsureRegisteredNotificationNameId(
    const NotificationNameId& notificationNameId)
{
    const String name = manager.GetNotificationName(notificationNameId);
    manager.AddSubscribedRegistrationIfNotRegistered(notificationNameId, name);
    CheckRegistrationStatus(notificationNameId);
}

void SubscriptionStateRelaxed::OnSubscribeToNotRegistered(const String&) {}

void SubscriptionStateRelaxed::OnSubscribeToUnregistered(const String&) {}

bool SubscriptionStateChecked::IsChecked() const
{
    return true;
}

NotificationNameId SubscriptionStateChecked::GetNotificationNameId(const String& notificationName) const
{
    manager.EnsureNotificationNameIsKnown("notificationName", notificationName);
    return manager.GetNotificationNameId(notificationName);
}

void SubscriptionStateChecked::EnsureRegisteredNotificationNameId(
    const NotificationNameId& notificationNameId)
{
    if (manager.IsNotificationNameIdKnown(notificationNameId))
    {
        CheckRegistrationStatus(notificationNameId);
    }
}

void SubscriptionStateChecked::OnSubscribeToNotRegistered(const String& notificationName)
{
    ownNotifications.SendAndLogSubscribeToNotRegistered(notificationName);
    throw ArgumentException::Create("notificationName", notificationName,
                                    "Cannot subscribe to not registered notification.");
}

void SubscriptionStateChecked::OnSubscribeToUnregistered(const String& notificationName)
{
    ownNotifications.SendAndLogSubscribeToUnregistered(notificationName);
    throw ArgumentException::Create("notificationName", notificationName,
                                    "Cannot subscribe to unregistered notification.");
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
