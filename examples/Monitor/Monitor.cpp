// demo-monitor: a component that watches the plant. One subscriber on Demo.Plant receives every
// notification below it, and prints the name, the severity and the payload's text.

#include "Common/Component.h"

#include <Nm/GenericPayload.h>
#include <Nm/Notification.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationSubscriber.h>

#include <Kiv/Exception.h>

#include <iostream>

using namespace Kiv::System::Nm;

int main(int argc, char** argv)
{
    KivTools::SystemOptions system;
    std::map<std::string, std::string> options{{"--name", "Monitor"}};
    if (!KivTools::ParseOptions(argc, argv, system, options, "demo-monitor",
                                "usage: demo-monitor [--name NAME] [--system S] [--endpoints D]\n"))
    {
        return 2;
    }
    const sigset_t signals = KivTools::BlockStopSignals();
    const auto membership = KivTools::JoinSystem(system, options["--name"], "demo-monitor");
    if (!membership)
    {
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
            if (signal == 0)
            {
                KivTools::AskBroker();
            }
        }
    }
    catch (const Kiv::Exception& e)
    {
        result = KivTools::ReportFailure("demo-monitor", e);
    }
    return result;
}
