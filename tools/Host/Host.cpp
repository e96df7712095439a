// kivnm-host: runs one process of a notification system. With --broker it is the main process, which
// holds the broker and publishes its services; without, an ordinary process that joins the broker of
// its system. It prints "ready" on stdout once set up and "dispatching" once the broker delivers, logs
// to stderr, and disposes cleanly on SIGINT or SIGTERM.

#include "Common/ProcessOptions.h"
#include "Common/SystemMembership.h"
#include "Host/ServiceReadiness.h"

#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/Services/NotificationManagerServiceFactory.h>

#include <Kiv/Exception.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulPolicyAuthorizator.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

namespace
{
using Kiv::System::Nm::Internal::NotificationManagerSetup;

const char* const usage =
    "usage: kivnm-host --name NAME [--broker] [--settings FILE] [--system NAME] [--endpoints DIR]\n"
    "                  [--policy FILE] [--start-after SECONDS | --start-on-signal]\n"
    "                  [--call-time-limit MS] [--stop-limit SECONDS]\n"
    "  --name NAME        the process's name, unique in its system (its dispatcher is published under it)\n"
    "  --broker           this is the main process: it holds the broker\n"
    "  --settings FILE    queue lengths (XML); default: built-in lengths\n"
    "  --system NAME      the system to join (default: $KIV_SYSTEM or \"default\")\n"
    "  --endpoints DIR    where the system's endpoints are (default: $KIV_ENDPOINTS, else /run/kiv-tul\n"
    "                     for root, $XDG_RUNTIME_DIR/kiv-tul or /tmp/kiv-tul-UID for others)\n"
    "  --policy FILE      who may call the public service, and the internal ones besides this user and\n"
    "                     root (XML); default: this user and root\n"
    "  --start-after S    start delivering S seconds after set-up (default 2; broker only)\n"
    "  --start-on-signal  start delivering on SIGUSR1 instead\n"
    "  --call-time-limit MS  the longest a call to another process may take (default 10000); a stopped\n"
    "                     or hung subscriber holds delivery up for this long\n"
    "  --stop-limit S     on SIGINT/SIGTERM, give up stopping cleanly after S seconds (default 10)\n"
    "  --help             this text\n";

struct Options
{
    std::string name;
    bool broker = false;
    std::string settings;
    std::string policy;
    std::optional<double> startAfter = 2.0;
    std::chrono::milliseconds callTimeLimit{10000};
    std::chrono::milliseconds stopLimit{10000};
    KivTools::SystemOptions system;
    bool help = false;
};

Options Parse(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    Options options;
    for (std::size_t i = 0; i < args.size(); ++i)
    {
        const std::string& arg = args[i];
        const auto value = [&]() -> const std::string&
        {
            if (i + 1 >= args.size())
            {
                throw std::invalid_argument(arg + " needs a value");
            }
            return args[++i];
        };
        if (options.system.Take(args, i))
        {
        }
        else if (arg == "--name")
        {
            options.name = value();
        }
        else if (arg == "--broker")
        {
            options.broker = true;
        }
        else if (arg == "--settings")
        {
            options.settings = value();
        }
        else if (arg == "--policy")
        {
            options.policy = value();
        }
        else if (arg == "--start-after")
        {
            options.startAfter = KivTools::ParseNumber(arg, value(), 0, 86400);
        }
        else if (arg == "--call-time-limit")
        {
            options.callTimeLimit =
                std::chrono::milliseconds(static_cast<long>(KivTools::ParseNumber(arg, value(), 1, 3600000)));
        }
        else if (arg == "--stop-limit")
        {
            options.stopLimit = std::chrono::milliseconds(
                static_cast<long>(1000 * KivTools::ParseNumber(arg, value(), 1, 3600)));
        }
        else if (arg == "--help" || arg == "-h")
        {
            options.help = true;
            return options;
        }
        else if (arg == "--start-on-signal")
        {
            options.startAfter.reset();
        }
        else
        {
            throw std::invalid_argument("unknown option " + arg);
        }
    }
    if (options.name.empty())
    {
        throw std::invalid_argument("--name is required");
    }
    return options;
}
}  // namespace

int main(int argc, char** argv)
{
    Options options;
    try
    {
        options = Parse(argc, argv);
    }
    catch (const std::exception& e)
    {
        std::cerr << "kivnm-host: " << e.what() << "\n" << usage;
        return 2;
    }
    if (options.help)
    {
        std::cout << usage;
        return 0;
    }

    const sigset_t signals = KivTools::BlockStopSignals();
    std::unique_ptr<Kiv::System::Tul::TulPolicyAuthorizator> policy;
    std::optional<KivTools::SystemMembership> membership;
    try
    {
        options.system.callTimeLimit = options.callTimeLimit;
        options.system.Apply();
        if (!options.policy.empty())
        {
            // A grant of an operation that the public service lacks is a mistake, refused here.
            std::vector<Kiv::String> operations;
            for (const char* name :
                 Kiv::System::Nm::Services::NotificationManagerServiceFactory::GetInstance()
                     .GetOperationNames())
            {
                operations.emplace_back(name);
            }
            policy =
                std::make_unique<Kiv::System::Tul::TulPolicyAuthorizator>(options.policy.c_str(), operations);
            Kiv::System::Tul::ServiceManager::SetAuthorizator(policy.get());
            Kiv::System::Tul::ServiceManager::SetInternalAuthorizator(&policy->GetInternalAuthorizator());
        }
        membership.emplace(options.name, "kivnm-host", options.stopLimit);
        const auto settings =
            NotificationManagerSetup::LoadSettingsFromFile(Kiv::String(options.settings.c_str()));
        // The settings take any length; a queue is allocated whole, and a wrapped "-1" would not fit.
        constexpr std::uint32_t maxQueueLength = 1u << 20;
        for (const std::uint32_t length : {settings.GetNotificationBrokerQueueLength(),
                                           settings.GetNonBlockingNotificationSendingProxyQueueLength()})
        {
            if (length > maxQueueLength)
            {
                throw std::invalid_argument("a queue length of " + std::to_string(length) + " in " +
                                            options.settings + " is more than " +
                                            std::to_string(maxQueueLength));
            }
        }
        membership->Join(options.broker, settings);
    }
    catch (const std::exception& e)
    {
        // A Kiv::Exception's what() is its message.
        std::cerr << "kivnm-host: set-up failed: " << e.what() << "\n";
        membership.reset();
        Kiv::System::Tul::ServiceManager::Shutdown();  // also when it failed before the AppDomain was made
        return 1;
    }
    std::cout << "ready" << std::endl;
    KivTools::NotifyReady(options.broker ? "set up, not dispatching yet" : "set up");

    const auto setUp = std::chrono::steady_clock::now();
    bool started = !options.broker;
    int signal = 0;
    while (signal != SIGINT && signal != SIGTERM)
    {
        auto wait = std::chrono::milliseconds(1000);
        if (!started && options.startAfter)
        {
            const auto due = setUp + std::chrono::duration<double>(*options.startAfter);
            wait =
                std::max(std::chrono::milliseconds(0), std::chrono::duration_cast<std::chrono::milliseconds>(
                                                           due - std::chrono::steady_clock::now()));
        }
        signal = KivTools::WaitForSignal(signals, wait);
        const bool due = options.startAfter && std::chrono::steady_clock::now() - setUp >=
                                                   std::chrono::duration<double>(*options.startAfter);
        if (!started && (signal == SIGUSR1 || (signal == 0 && due)))
        {
            membership->StartDispatching();
            started = true;
            std::cout << "dispatching" << std::endl;
            KivTools::NotifyStatus("dispatching");
        }
    }

    KivTools::NotifyStopping();
    membership.reset();  // leaves the system, within the stop limit
    Kiv::System::Tul::ServiceManager::SetAuthorizator(nullptr);
    Kiv::System::Tul::ServiceManager::SetInternalAuthorizator(nullptr);
    std::cout << "stopped" << std::endl;
    return 0;
}
