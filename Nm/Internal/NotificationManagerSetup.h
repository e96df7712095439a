#pragma once

#include <Nm/Internal/Settings/NotificationManagerSettings.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

namespace Kiv::System::Nm::Internal
{
/// Which objects of the system exist in a process, and the order in which they come and go. The main
/// process calls SetupWithNotificationBroker, every other process SetupWithoutNotificationBroker; each
/// calls Dispose at its end, after its components have unsubscribed.
class KIV_API NotificationManagerSetup
{
public:
    using NotificationManagerSettings = Settings::NotificationManagerSettings;

    static NotificationManagerSettings LoadSettingsFromFile(const String& path);
    /// The manager, and with it this process's dispatcher. Needs the broker's services.
    static void SetupWithoutNotificationBroker(const NotificationManagerSettings& settings);
    static void SetupWithoutNotificationBroker(const String& path);
    /// The broker first, whose services the manager then finds.
    static void SetupWithNotificationBroker(const NotificationManagerSettings& settings);
    static void SetupWithNotificationBroker(const String& path);
    /// Ends the set-up phase in the broker's process; elsewhere, and without an AppDomain, does nothing.
    static void StartDispatching();
    /// Manager (with the dispatcher), then broker. Raises when there is no AppDomain; harmless twice.
    static void Dispose();
};
}  // namespace Kiv::System::Nm::Internal
