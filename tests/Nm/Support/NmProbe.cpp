// A process of a test system, driven by commands on its standard input, one per line. It answers each
// with a line that starts with "ok" or with "error <exception class>: <message>", and prints
// "notify <subscribed name> <full name> <text>" for each notification that reaches one of its subscribers.
// Usage: NmProbe SYSTEM ENDPOINT_DIRECTORY PROCESS_NAME [CALL_TIME_LIMIT_MS]

#include <Nm/GenericPayload.h>
#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/Notification.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistration.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/NotificationSubscriber.h>
#include <Nm/Services/INotificationManagerService.h>
#include <Nm/Services/NotificationManagerServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>
#include <Nm/Services/ServiceValues.h>
#include <Nm/StringPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exception.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <cxxabi.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::NotificationManagerSetup;

namespace
{
std::mutex outputMutex;

void Say(const std::string& line)
{
    std::lock_guard<std::mutex> lock(outputMutex);
    std::cout << line << std::endl;
}

std::string ClassName(const std::exception& e)
{
    int status = 0;
    char* name = abi::__cxa_demangle(typeid(e).name(), nullptr, nullptr, &status);
    std::string result = status == 0 ? name : typeid(e).name();
    std::free(name);
    return result;
}

std::string Describe(const std::exception& e)
{
    const auto* kiv = dynamic_cast<const Kiv::Exception*>(&e);
    return ClassName(e) + ": " + (kiv != nullptr ? std::string(kiv->GetMessage().c_str()) : e.what());
}

std::string Rest(std::istringstream& in)
{
    std::string rest;
    std::getline(in >> std::ws, rest);
    return rest;
}

std::string Resources()
{
    int threads = 0;
    for ([[maybe_unused]] const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
    {
        ++threads;
    }
    int sockets = 0;
    for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code error;
        sockets += std::filesystem::read_symlink(fd.path(), error).string().rfind("socket:", 0) == 0 ? 1 : 0;
    }
    return "threads=" + std::to_string(threads) + " sockets=" + std::to_string(sockets);
}

/// Each of the eleven operations of the public service, with what came of it.
void CallEveryPublicOperation()
{
    using Services::ToTulString;
    auto service = Services::FetchService<Services::INotificationManagerService,
                                          Services::NotificationManagerServiceProxyFactory>();
    const std::vector<std::pair<const char*, std::function<void()>>> operations{
        {"RegisterNotification",
         [&]
         {
             service->RegisterNotification(ToTulString("P.Q"), ToTulString("probe"), Severity::Info,
                                           ToTulString("T"));
         }},
        {"UnregisterNotification", [&] { service->UnregisterNotification(1); }},
        {"SendNotification", [&] { service->SendNotification(1, Kiv::DateTime::GetUtcNow(), {}); }},
        {"GetNotificationName", [&] { service->GetNotificationName(1); }},
        {"GetNotificationNameId", [&] { service->GetNotificationNameId(ToTulString("Kiv")); }},
        {"GetNotificationNameIdsByStatus",
         [&] { service->GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Registered); }},
        {"GetAllKnownNotificationNameIds", [&] { service->GetAllKnownNotificationNameIds(); }},
        {"GetNotificationRegistration", [&] { service->GetNotificationRegistration(4); }},
        {"GetPayloadTypeId", [&] { service->GetPayloadTypeId(ToTulString("T")); }},
        {"GetPayloadTypeName", [&] { service->GetPayloadTypeName(1); }},
        {"GetNumberOfSubmittedNotifications", [&] { service->GetNumberOfSubmittedNotifications(); }},
    };
    for (const auto& [name, call] : operations)
    {
        try
        {
            call();
            Say(std::string("op ") + name + " ok");
        }
        catch (const std::exception& e)
        {
            Say(std::string("op ") + name + " " + Describe(e));
        }
    }
}

class Probe
{
public:
    Probe(std::string processName) : processName(std::move(processName)) {}

    std::string Run(const std::string& command, std::istringstream& in)
    {
        if (command == "setup")
        {
            Kiv::System::Commons::AppDomain::Create(processName.c_str());
            std::string kind;
            in >> kind;
            const Kiv::String settings(Rest(in).c_str());
            try
            {
                kind == "broker" ? NotificationManagerSetup::SetupWithNotificationBroker(settings)
                                 : NotificationManagerSetup::SetupWithoutNotificationBroker(settings);
            }
            catch (...)
            {
                Kiv::System::Commons::AppDomain::Dispose();
                throw;
            }
            return "ok";
        }
        if (command == "register")
        {
            const std::string name = Rest(in);
            auto& registration = registrations[name];
            registration = NotificationRegistration<StringPayload>(name.c_str(), processName.c_str(),
                                                                   Severity::Info, Manager());
            return "ok " + std::to_string(registration.GetNotificationNameId().GetValue());
        }
        if (command == "unregister")
        {
            registrations.at(Rest(in)).Dispose();
            return "ok";
        }
        if (command == "subscribe" || command == "relay")
        {
            std::string name;
            std::string target;
            in >> name >> target;
            auto& subscriber = subscribers.emplace_back(name.c_str());
            if (command == "relay")
            {
                // Sending from inside Notify: the broker's thread waits for this delivery meanwhile.
                subscriber.AddHandler(
                    [this, target](const Notification& n)
                    {
                        registrations.at(target).SendNotification(
                            StringPayload("relayed " + std::string(GenericPayload(n).ToString().c_str())));
                    });
            }
            subscriber.AddHandler(
                [name](const Notification& n)
                {
                    const std::string fullName =
                        Manager().GetNotificationName(n.GetNotificationNameId()).c_str();
                    Say("notify " + name + " " + fullName + " " + GenericPayload(n).ToString().c_str());
                });
            return "ok " + std::to_string(subscriber.GetNotificationNameId().GetValue());
        }
        if (command == "hang")
        {
            // A subscriber that never returns, as one stuck on a lock would.
            auto& subscriber = subscribers.emplace_back(Rest(in).c_str());
            subscriber.AddHandler(
                [](const Notification&)
                {
                    Say("hanging");
                    for (;;)
                    {
                        std::this_thread::sleep_for(std::chrono::hours(1));
                    }
                });
            return "ok";
        }
        if (command == "count")
        {
            // Texts are "<stream> <sequence>"; each stream must arrive complete, once, in order.
            const std::string name = Rest(in);
            auto& tally = tallies[name];
            subscribers.emplace_back(name.c_str())
                .AddHandler(
                    [&tally](const Notification& n)
                    {
                        std::istringstream text(GenericPayload(n).ToString().c_str());
                        std::string stream;
                        long sequence = 0;
                        text >> stream >> sequence;
                        std::lock_guard<std::mutex> lock(tally.mutex);
                        auto [last, fresh] = tally.last.emplace(stream, -1);
                        tally.bad += sequence == last->second + 1 ? 0 : 1;
                        last->second = sequence;
                        ++tally.received;
                    });
            return "ok";
        }
        if (command == "report")
        {
            auto& tally = tallies.at(Rest(in));
            std::lock_guard<std::mutex> lock(tally.mutex);
            return "ok received=" + std::to_string(tally.received) + " bad=" + std::to_string(tally.bad);
        }
        if (command == "flood")
        {
            std::string name;
            int threads = 0;
            int count = 0;
            in >> name >> threads >> count;
            const auto& registration = registrations.at(name);
            std::atomic<int> accepted{0};
            std::vector<std::thread> senders;
            for (int t = 0; t < threads; ++t)
            {
                senders.emplace_back(
                    [&, t]
                    {
                        // A refused notification leaves a gap in its stream: only accepted ones are numbered.
                        long sequence = 0;
                        const std::string stream = processName + "/" + std::to_string(t);
                        for (int i = 0; i < count; ++i)
                        {
                            const std::string text = stream + " " + std::to_string(sequence);
                            if (registration.SendNotification(StringPayload(text.c_str())) !=
                                NotificationId(0))
                            {
                                ++sequence;
                                ++accepted;
                            }
                        }
                    });
            }
            for (auto& sender : senders)
            {
                sender.join();
            }
            return "ok accepted=" + std::to_string(accepted.load()) +
                   " refused=" + std::to_string(threads * count - accepted.load());
        }
        if (command == "stats")
        {
            return "ok submitted=" + std::to_string(Manager().GetNumberOfSubmittedNotifications());
        }
        if (command == "send" || command == "nbsend")
        {
            std::string name;
            in >> name;
            const std::string text = Rest(in);
            const auto& registration = registrations.at(name);
            if (command == "send")
            {
                return "ok " +
                       std::to_string(registration.SendNotification(StringPayload(text.c_str())).GetValue());
            }
            const auto future = Manager().NonBlockingSendNotification(registration.GetNotificationNameId(),
                                                                      Kiv::DateTime::GetUtcNow(),
                                                                      StringPayload(text.c_str()));
            while (future.IsValid() && !future.HasValue())
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return future.IsValid() ? "ok " + std::to_string(future.GetValue().GetValue())
                                    : "error queue full";
        }
        if (command == "sendid")
        {
            std::uint32_t id = 0;
            in >> id;
            return "ok " +
                   std::to_string(Manager()
                                      .SendNotification(NotificationNameId(id), Kiv::DateTime::GetUtcNow(),
                                                        StringPayload("x"))
                                      .GetValue());
        }
        if (command == "name")
        {
            std::uint32_t id = 0;
            in >> id;
            return std::string("ok ") + Manager().GetNotificationName(NotificationNameId(id)).c_str();
        }
        if (command == "start")
        {
            NotificationManagerSetup::StartDispatching();
            return "ok";
        }
        if (command == "public")
        {
            CallEveryPublicOperation();
            return "ok";
        }
        if (command == "resources")
        {
            return "ok " + Resources();
        }
        if (command == "dispose")
        {
            subscribers.clear();
            registrations.clear();
            NotificationManagerSetup::Dispose();
            Kiv::System::Commons::AppDomain::Dispose();
            Kiv::System::Tul::ServiceManager::Shutdown();
            return "ok";
        }
        return "error unknown command " + command;
    }

private:
    static NotificationManager& Manager() { return NotificationManager::GetInstance(); }

    struct Tally
    {
        std::mutex mutex;
        std::map<std::string, long> last;
        long received = 0;
        long bad = 0;
    };

    std::string processName;
    std::map<std::string, NotificationRegistration<StringPayload>> registrations;
    std::map<std::string, Tally> tallies;
    std::list<NotificationSubscriber> subscribers;
};
}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4 && argc != 5)
    {
        std::cerr << "usage: NmProbe SYSTEM ENDPOINT_DIRECTORY PROCESS_NAME [CALL_TIME_LIMIT_MS]\n";
        return 2;
    }
    Kiv::System::Tul::TulSettings settings;
    settings.systemName = argv[1];
    settings.endpointDirectory = argv[2];
    settings.connectWait = std::chrono::seconds(20);
    if (argc == 5)
    {
        settings.callTimeLimit = std::chrono::milliseconds(std::stoi(argv[4]));
    }
    Kiv::System::Tul::ServiceManager::Configure(settings);

    Probe probe(argv[3]);
    std::string line;
    while (std::getline(std::cin, line) && line != "exit")
    {
        std::istringstream in(line);
        std::string command;
        in >> command;
        try
        {
            Say(probe.Run(command, in));
        }
        catch (const std::exception& e)
        {
            Say("error " + Describe(e));
        }
    }
    return 0;
}
