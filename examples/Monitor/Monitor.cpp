// demo-monitor: a component that watches the plant. One subscriber on Demo.Plant receives every
// notification below it, and prints the name, the severity and the payload's text.

#include "Common/ProcessOptions.h"

#include <Nm/GenericPayload.h>
#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/Notification.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationSubscriber.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exception.h>

#include <iostream>

using namespace Kiv::System::Nm;

int main(int argc, char** argv)
{
    KivTools::SystemOptions system;
    std::string name = "Monitor";
    const std::vector<std::string> args(argv + 1, argv + argc);
    for (std::size_t i = 0; i < args.size(); ++i)
    {
        if (system.Take(args, i))
        {
            continue;
        }
        if (args[i] == "--name" && i + 1 < args.size())
        {
            name = args[++i];
        }
        else
        {
            std::cerr << "usage: demo-monitor [--name NAME] [--system S] [--endpoints D]\n";
            return 2;
        }
    }

    const sigset_t signals = KivTools::BlockStopSignals();
    system.Apply();
    Kiv::System::Commons::AppDomain::Create(name.c_str());
    try
    {
        Internal::NotificationManagerSetup::SetupWithoutNotificationBroker(Kiv::String(""));
    }
    catch (const Kiv::Exception& e)
    {
        std::cerr << "demo-monitor: cannot join the system: " << e.GetMessage() << std::endl;
        return 1;
    }

    int result = 0;
    try
    {
        // The subscriber must go before the manager: it unsubscribes when it is destroyed.
        NotificationSubscriber plant("Demo.Plant");
        plant.AddHandler(
            [](const Notification& notification)
            {
                const auto& manager = NotificationManager::GetInstance();
                std::cout << "monitor: " << manager.GetNotificationName(notification.GetNotificationNameId())
                          << " [" << notification.GetSeverity() << "] "
                          << GenericPayload(notification).ToString() << std::endl;
            });
        std::cout << "monitor ready" << std::endl;
        int signal = 0;
        while (signal != SIGINT && signal != SIGTERM)
        {
            signal = KivTools::WaitForSignal(signals, std::chrono::milliseconds(1000));
        }
    }
    catch (const Kiv::Exception& e)
    {
        std::cerr << "demo-monitor: " << e.GetMessage() << std::endl;
        result = 1;
    }

    Internal::NotificationManagerSetup::Dispose();
    Kiv::System::Commons::AppDomain::Dispose();
    Kiv::System::Tul::ServiceManager::Shutdown();
    return result;
}
