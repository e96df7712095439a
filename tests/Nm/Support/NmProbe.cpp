// A process of a test system, driven by commands on its standard input, one per line. It answers each,
// and prints nothing else, with a line that starts with "ok" or with "error <exception class>: <message>".
// Usage: NmProbe SYSTEM ENDPOINT_DIRECTORY PROCESS_NAME [CALL_TIME_LIMIT_MS]

#include "Common/SystemMembership.h"

#include <Nm/GenericPayload.h>
#include <Nm/Notification.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistration.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/NotificationSubscriber.h>
#include <Nm/StringPayload.h>

#include <Kiv/Exception.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <cxxabi.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>

using namespace Kiv::System::Nm;

namespace
{
std::string Describe(const std::exception& e)
{
    const std::unique_ptr<char, void (*)(void*)> type(
        abi::__cxa_demangle(typeid(e).name(), nullptr, nullptr, nullptr), &std::free);
    const auto* kiv = dynamic_cast<const Kiv::Exception*>(&e);
    return std::string(type ? type.get() : typeid(e).name()) + ": " +
           (kiv != nullptr ? kiv->GetMessage().c_str() : e.what());
}

std::string Text(const Notification& notification)
{
    return GenericPayload(notification).ToString().c_str();
}

NotificationManager& Manager()
{
    return NotificationManager::GetInstance();
}

/// Threads and sockets of this process, to show that leaving takes the library's own with it.
std::string Resources()
{
    namespace fs = std::filesystem;
    int sockets = 0;
    for (const auto& fd : fs::directory_iterator("/proc/self/fd"))
    {
        std::error_code error;
        sockets += fs::read_symlink(fd.path(), error).string().rfind("socket:", 0) == 0 ? 1 : 0;
    }
    const auto threads = std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator());
    const auto fds = std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    return "threads=" + std::to_string(threads) + " sockets=" + std::to_string(sockets) +
           " fds=" + std::to_string(fds);
}

class Probe
{
public:
    explicit Probe(std::string processName) : processName(std::move(processName)) {}

    std::string Run(const std::string& command, std::istringstream& in)
    {
        std::string name;
        std::string rest;
        in >> name;
        std::getline(in >> std::ws, rest);
        if (command == "setup")
        {
            membership.emplace(processName);
            membership->Join(name == "broker", Kiv::String(rest.c_str()));
        }
        else if (command == "register")
        {
            registrations[name] = NotificationRegistration<StringPayload>(name.c_str(), processName.c_str(),
                                                                          Severity::Info, Manager());
            return "ok " + std::to_string(registrations[name].GetNotificationNameId().GetValue());
        }
        else if (command == "subscribe")
        {
            // With a registered name after it, each notification is relayed there from inside Notify, while
            // the broker's thread waits for this delivery.
            subscribers.emplace_back(name.c_str())
                .AddHandler(
                    [this, name, rest](const Notification& n)
                    {
                        if (!rest.empty())
                        {
                            registrations.at(rest).SendNotification(StringPayload("relayed " + Text(n)));
                        }
                        const std::string fullName =
                            Manager().GetNotificationName(n.GetNotificationNameId()).c_str();
                        std::lock_guard<std::mutex> lock(mutex);
                        notified[name].push_back(fullName + " " + Text(n));
                        arrived.notify_all();
                    });
        }
        else if (command == "hang")
        {
            // A peer that hangs: it notes its first delivery, as "hanging", and never returns from it.
            subscribers.emplace_back(name.c_str())
                .AddHandler(
                    [this, name](const Notification&)
                    {
                        {
                            std::lock_guard<std::mutex> lock(mutex);
                            notified[name].push_back("hanging");
                            arrived.notify_all();
                        }
                        std::this_thread::sleep_for(std::chrono::hours(1));
                    });
        }
        else if (command == "next")
        {
            // The next notification of subscription `name`, as "<full name> <text>".
            std::unique_lock<std::mutex> lock(mutex);
            auto& queue = notified[name];
            arrived.wait(lock, [&] { return !queue.empty(); });
            const std::string line = queue.front();
            queue.pop_front();
            return "ok " + line;
        }
        else if (command == "report")
        {
            // Once `rest` notifications of subscription `name` have arrived, or 20 seconds have passed: how
            // many there are, and how many of them broke the order of their stream, given as the last
            // number of their text.
            std::unique_lock<std::mutex> lock(mutex);
            const auto& queue = notified[name];
            arrived.wait_for(lock, std::chrono::seconds(20),
                             [&] { return queue.size() >= std::stoul(rest); });
            std::map<std::string, long> next;
            long bad = 0;
            for (const std::string& line : queue)
            {
                const auto end = line.rfind(' ');
                bad += std::stol(line.substr(end)) == next[line.substr(0, end)]++ ? 0 : 1;
            }
            return "ok received=" + std::to_string(queue.size()) + " bad=" + std::to_string(bad);
        }
        else if (command == "flood")
        {
            // Each of `threads` threads sends `count` notifications as a stream of its own, numbered by the
            // accepted ones, so that a refusal leaves no gap.
            int threads = 0;
            int count = 0;
            std::istringstream(rest) >> threads >> count;
            std::atomic<int> refused{0};
            std::vector<std::thread> senders;
            for (int t = 0; t < threads; ++t)
            {
                senders.emplace_back(
                    [&, t]
                    {
                        for (int i = 0, next = 0; i < count; ++i)
                        {
                            const auto text =
                                processName + "/" + std::to_string(t) + " " + std::to_string(next);
                            const bool accepted = registrations.at(name).SendNotification(
                                                      StringPayload(text.c_str())) != NotificationId(0);
                            accepted ? ++next : ++refused;
                        }
                    });
            }
            for (auto& sender : senders)
            {
                sender.join();
            }
            return "ok refused=" + std::to_string(refused);
        }
        else if (command == "burst")
        {
            // Sends numbered notifications until `rest` are sent or a send fails: how many ids came back
            // and the first failure. Numbered by the accepted ones, as flood does.
            long accepted = 0;
            long refused = 0;
            std::string failure = "none";
            try
            {
                for (long i = 0; i < std::stol(rest); ++i)
                {
                    const auto text = processName + " " + std::to_string(accepted);
                    registrations.at(name).SendNotification(StringPayload(text.c_str())) != NotificationId(0)
                        ? ++accepted
                        : ++refused;
                }
            }
            catch (const std::exception& e)
            {
                failure = Describe(e);
            }
            return "ok accepted=" + std::to_string(accepted) + " refused=" + std::to_string(refused) +
                   " failure=" + failure;
        }
        else if (command == "nbsend")
        {
            // Through the non-blocking path; a send that the broker refuses for a full queue is retried by
            // the worker until it goes through.
            const auto future = Manager().NonBlockingSendNotification(
                registrations.at(name).GetNotificationNameId(), Kiv::DateTime::GetUtcNow(),
                StringPayload(rest.c_str()));
            return future.IsValid() ? "ok" : "error refused";
        }
        else if (command == "nbflood")
        {
            // `rest` notifications through the non-blocking path as one numbered stream; a refusal of the
            // ring buffer is tried again, so that the stream has no gap.
            const NotificationNameId id = registrations.at(name).GetNotificationNameId();
            for (long i = 0; i < std::stol(rest); ++i)
            {
                const auto text = processName + "/nb " + std::to_string(i);
                while (!Manager()
                            .NonBlockingSendNotification(id, Kiv::DateTime::GetUtcNow(),
                                                         StringPayload(text.c_str()))
                            .IsValid())
                {
                    std::this_thread::yield();
                }
            }
            return std::string("ok");
        }
        else if (command == "send")
        {
            // To a registered name, or else to the raw name id given.
            const auto found = registrations.find(name);
            const NotificationNameId id = found != registrations.end() ? found->second.GetNotificationNameId()
                                                                       : NotificationNameId(std::stoul(name));
            return "ok " + std::to_string(Manager()
                                              .SendNotification(id, Kiv::DateTime::GetUtcNow(),
                                                                StringPayload(rest.c_str()))
                                              .GetValue());
        }
        else if (command == "status")
        {
            // The registration status of a name, as the broker has it.
            std::ostringstream status;
            status << Manager()
                          .GetNotificationRegistration(Manager().GetNotificationNameId(name.c_str()))
                          .GetStatus();
            return "ok " + status.str();
        }
        else if (command == "start")
        {
            membership->StartDispatching();
        }
        else if (command == "stats")
        {
            return "ok submitted=" + std::to_string(Manager().GetNumberOfSubmittedNotifications());
        }
        else if (command == "resources")
        {
            return "ok " + Resources();
        }
        else if (command == "dispose")
        {
            subscribers.clear();
            registrations.clear();
            membership.reset();
        }
        else
        {
            return "error unknown command " + command;
        }
        return "ok";
    }

private:
    std::string processName;
    // Declared before what needs the system, which goes before the process leaves it.
    std::optional<KivTools::SystemMembership> membership;
    // Declared before the subscribers, which use them until they go.
    std::mutex mutex;
    std::condition_variable arrived;
    std::map<std::string, std::deque<std::string>> notified;
    std::map<std::string, NotificationRegistration<StringPayload>> registrations;
    std::list<NotificationSubscriber> subscribers;
};
}  // namespace

int main(int argc, char** argv)
{
    Kiv::System::Tul::TulSettings settings;
    settings.systemName = argv[1];
    settings.endpointDirectory = argv[2];
    settings.connectWait = std::chrono::seconds(20);
    if (argc > 4)
    {
        settings.callTimeLimit = std::chrono::milliseconds(std::stoi(argv[4]));
    }
    Kiv::System::Tul::ServiceManager::Configure(settings);

    Probe probe(argv[3]);
    for (std::string line; std::getline(std::cin, line) && line != "exit";)
    {
        std::istringstream in(line);
        std::string command;
        in >> command;
        try
        {
            std::cout << probe.Run(command, in) << std::endl;
        }
        catch (const std::exception& e)
        {
            std::cout << "error " << Describe(e) << std::endl;
        }
    }
    return 0;
}
