#pragma once

// What a component process does around its own work: read its few options, join the system at its start
// and leave it at its end. The demo components use it; a component of a user's does the same in its own
// words.

#include "Common/ProcessOptions.h"
#include "Common/SystemMembership.h"

#include <Nm/NotificationManager.h>

#include <Kiv/Exception.h>
#include <Kiv/Exceptions.h>

#include <iostream>
#include <map>
#include <memory>
#include <string>

namespace KivTools
{
/// Reads "--system", "--endpoints" and the options named in `values` (each taking a value, which
/// replaces the default in the map); false, with the reason and `usage` on stderr, for anything else.
/// "--help" prints `usage` and ends the process with 0.
inline bool ParseOptions(int argc, char** argv, SystemOptions& system,
                         std::map<std::string, std::string>& values, const char* program, const char* usage)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    try
    {
        for (std::size_t i = 0; i < args.size(); ++i)
        {
            if (args[i] == "--help" || args[i] == "-h")
            {
                std::cout << usage;
                std::exit(0);
            }
            if (system.Take(args, i))
            {
                continue;
            }
            const auto option = values.find(args[i]);
            if (option == values.end())
            {
                throw std::invalid_argument("unknown option " + args[i]);
            }
            if (i + 1 >= args.size())
            {
                throw std::invalid_argument(args[i] + " needs a value");
            }
            option->second = args[++i];
        }
        return true;
    }
    catch (const std::invalid_argument& e)
    {
        std::cerr << program << ": " << e.what() << "\n" << usage;
        return false;
    }
}

/// Raises CommunicationException once the broker has gone: deliveries just stop then, so a process that
/// only receives learns so only by asking now and then.
inline void AskBroker()
{
    Kiv::System::Nm::NotificationManager::GetInstance().GetNumberOfSubmittedNotifications();
}

/// A failure while in the system as one line on stderr, saying so when it is the broker that has gone;
/// the result is the exit code of a failure.
inline int ReportFailure(const char* program, const Kiv::Exception& e)
{
    const bool gone = dynamic_cast<const Kiv::CommunicationException*>(&e) != nullptr;
    std::cerr << program << ": " << (gone ? "the notification broker is gone: " : "") << e.GetMessage()
              << std::endl;
    return 1;
}

/// Joins `system` as the process `name`, without a broker of its own, until the result goes (leaving is
/// bounded by a watchdog); null, with the reason on stderr, when the broker can't be reached.
inline std::unique_ptr<SystemMembership> JoinSystem(const SystemOptions& system, const std::string& name,
                                                    const char* program)
{
    system.Apply();
    auto membership = std::make_unique<SystemMembership>(name, program, std::chrono::seconds(10));
    try
    {
        membership->Join(false, Kiv::String(""));
        return membership;
    }
    catch (const Kiv::Exception& e)
    {
        std::cerr << program << ": cannot join the system: " << e.GetMessage() << std::endl;
        return nullptr;
    }
}
}  // namespace KivTools
