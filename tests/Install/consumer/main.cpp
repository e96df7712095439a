// Sends one notification to itself through a broker in its own process and prints what its handler got.
// Uses only the installed headers and libraries.

#include <Nm/GenericPayload.h>
#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistration.h>
#include <Nm/NotificationSubscriber.h>
#include <Nm/StringPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <chrono>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>

#include <unistd.h>

using namespace Kiv::System::Nm;
using Kiv::System::Commons::AppDomain;
using Kiv::System::Nm::Internal::NotificationManagerSetup;
using Kiv::System::Tul::ServiceManager;

int main()
{
    // A system of its own, so that a run beside the tests or another system meets no one's endpoint.
    Kiv::System::Tul::TulSettings settings;
    settings.systemName = "install-consumer-" + std::to_string(getpid());
    ServiceManager::Configure(settings);

    AppDomain::Create("Consumer");
    NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));

    std::mutex mutex;
    std::string received;
    bool done = false;
    {
        auto& manager = NotificationManager::GetInstance();
        NotificationRegistration<StringPayload> registration("Consumer.Greeting", "Consumer", Severity::Info,
                                                             manager);
        NotificationSubscriber subscriber = manager.CreateNotificationSubscriber("Consumer.Greeting");
        subscriber.AddHandler(
            [&](const Notification& notification)
            {
                std::lock_guard<std::mutex> lock(mutex);
                received = GenericPayload(notification).ToString().c_str();
                done = true;
            });
        NotificationManagerSetup::StartDispatching();
        registration.SendNotification(StringPayload("hello from an installed library"));

        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (;;)
        {
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (done || std::chrono::steady_clock::now() > deadline)
                    break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    NotificationManagerSetup::Dispose();
    AppDomain::Dispose();
    ServiceManager::Shutdown();

    if (!done)
    {
        std::cerr << "no notification arrived\n";
        return 1;
    }
    std::cout << "received: " << received << '\n';
    return 0;
}
