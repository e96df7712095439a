#pragma once

// A process's part in its system, from joining to leaving, as one object: the programs, the demo
// components and the test processes join and leave in the same order, and leave also on an early return.

#include "Common/ProcessOptions.h"

#include <Nm/Internal/NotificationManagerSetup.h>

#include <Kiv/AppDomain.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <chrono>
#include <optional>
#include <string>

namespace KivTools
{
/// Made, this process is the AppDomain `name` (the transport configured before); Join sets the library up
/// with or without the broker. Gone, it disposes what was set up, the AppDomain, and the transport's
/// connections and endpoints, in this order. Registrations and subscribers must have gone before: declare
/// them after it. With a stop limit, leaving is bounded by a StopWatchdog in the name of `program`.
class SystemMembership
{
public:
    explicit SystemMembership(const std::string& name, std::string program = {},
                              std::optional<std::chrono::milliseconds> stopLimit = std::nullopt)
        : program(std::move(program)), stopLimit(stopLimit)
    {
        Kiv::System::Commons::AppDomain::Create(name.c_str());
    }
    SystemMembership(const SystemMembership&) = delete;
    SystemMembership& operator=(const SystemMembership&) = delete;
    ~SystemMembership()
    {
        std::optional<StopWatchdog> watchdog;
        if (stopLimit)
        {
            watchdog.emplace(program, *stopLimit);
        }
        if (joined)
        {
            Kiv::System::Nm::Internal::NotificationManagerSetup::Dispose();
        }
        Kiv::System::Commons::AppDomain::Dispose();
        Kiv::System::Tul::ServiceManager::Shutdown();
    }

    /// Sets up the main process (`broker`) or another one from `settings`, a settings object or the path
    /// of a settings file ("" for the defaults). Raises what the set-up raises.
    template <class Settings>
    void Join(bool broker, const Settings& settings)
    {
        using Kiv::System::Nm::Internal::NotificationManagerSetup;
        broker ? NotificationManagerSetup::SetupWithNotificationBroker(settings)
               : NotificationManagerSetup::SetupWithoutNotificationBroker(settings);
        joined = true;
    }

    /// The main process's start of delivery.
    static void StartDispatching()
    {
        Kiv::System::Nm::Internal::NotificationManagerSetup::StartDispatching();
    }

private:
    std::string program;
    std::optional<std::chrono::milliseconds> stopLimit;
    bool joined = false;
};
}  // namespace KivTools
