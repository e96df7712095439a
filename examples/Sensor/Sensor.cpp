// demo-sensor: a component that measures a plant and tells the system. It registers three names under
// Demo.Plant, sends a temperature reading now and then with a blocking send, and a pressure reading
// from a timed loop through the non-blocking path, the way a cyclic control task would. An alarm with a
// plain text payload goes out when the temperature crosses its limit.

#include "PlantReading.h"

#include "Common/Component.h"

#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistration.h>
#include <Nm/StringPayload.h>

#include <cmath>
#include <iostream>
#include <thread>

using namespace Kiv::System::Nm;

int main(int argc, char** argv)
{
    KivTools::SystemOptions system;
    std::map<std::string, std::string> options{{"--name", "Sensor"}, {"--period-ms", "500"}};
    const char* const usage =
        "usage: demo-sensor [--name NAME] [--period-ms N] [--system S] [--endpoints D]\n";
    if (!KivTools::ParseOptions(argc, argv, system, options, "demo-sensor", usage))
    {
        return 2;
    }
    const std::string name = options["--name"];
    int periodMs = 0;
    try
    {
        periodMs = static_cast<int>(KivTools::ParseNumber("--period-ms", options["--period-ms"], 1, 3600000));
    }
    catch (const std::invalid_argument& e)
    {
        std::cerr << "demo-sensor: " << e.what() << "\n" << usage;
        return 2;
    }
    const sigset_t signals = KivTools::BlockStopSignals();
    auto membership = KivTools::JoinSystem(system, name, "demo-sensor");
    if (!membership)
    {
        return 1;
    }

    int result = 0;
    try
    {
        auto& manager = NotificationManager::GetInstance();
        NotificationRegistration<Demo::PlantReading> temperature("Demo.Plant.Temperature", name.c_str(),
                                                                 Severity::Info, manager);
        NotificationRegistration<Demo::PlantReading> pressure("Demo.Plant.Pressure", name.c_str(),
                                                              Severity::Info, manager);
        NotificationRegistration<StringPayload> alarm("Demo.Plant.Alarm", name.c_str(), Severity::Warning,
                                                      manager);
        std::cout << "sensor ready" << std::endl;

        // The timed loop: a fixed period, and in it only the non-blocking send of the pressure, which
        // neither waits for the broker nor makes a remote call on this thread.
        auto next = std::chrono::steady_clock::now();
        for (int cycle = 0;; ++cycle)
        {
            const double pressure_bar = 2.0 + 0.1 * std::sin(cycle / 5.0);
            const auto future = manager.NonBlockingSendNotification(
                pressure.GetNotificationNameId(), Kiv::DateTime::GetUtcNow(),
                Demo::PlantReading("pressure", pressure_bar, "bar"));
            if (!future.IsValid())
            {
                std::cerr << "demo-sensor: the non-blocking queue is full" << std::endl;
            }
            if (cycle % 2 == 0)
            {
                const double degrees = 20.0 + (cycle % 20);
                temperature.SendNotification(Demo::PlantReading("temperature", degrees, "degC"));
                if (degrees > 37.0)
                {
                    alarm.SendNotification(StringPayload("temperature above 37 degC"));
                }
            }
            next += std::chrono::milliseconds(periodMs);
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(
                next - std::chrono::steady_clock::now());
            const int signal = KivTools::WaitForSignal(signals, std::max(wait, std::chrono::milliseconds(0)));
            if (signal == SIGINT || signal == SIGTERM)
            {
                break;
            }
        }
    }
    catch (const Kiv::Exception& e)
    {
        result = KivTools::ReportFailure("demo-sensor", e);
    }

    membership.reset();  // leaves the system
    std::cout << "sensor stopped" << std::endl;
    return result;
}
