// kivnm: looks at and pokes a running notification system from a shell. The query and send commands go
// through the broker's public service (and the subscription-state service); watch joins the system as a
// process of its own and prints what arrives. Human-readable output by default, --json for scripts;
// errors go to stderr with the system's message, and the exit code is not 0.

#include "Common/Component.h"
#include "Common/ProcessOptions.h"
#include "Common/SystemMembership.h"

#include <Nm/EnumDictionary.h>
#include <Nm/GenericPayload.h>
#include <Nm/Notification.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/INotificationManagerService.h>
#include <Nm/Services/Internal/INotificationManagerInfoService.h>
#include <Nm/Services/Internal/ISubscriptionStateService.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceProxyFactory.h>
#include <Nm/Services/NotificationManagerServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>
#include <Nm/Services/ServiceValues.h>
#include <Nm/StringPayload.h>

#include <Kiv/Exception.h>
#include <Kiv/Exceptions.h>
#include <Kiv/Logging/LogManager.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <list>
#include <mutex>
#include <optional>
#include <sstream>

#include <unistd.h>

namespace
{
using namespace Kiv::System::Nm;
using Kiv::System::Nm::Services::INotificationManagerService;
using Kiv::System::Nm::Services::Internal::ISubscriptionStateService;
using Json = nlohmann::ordered_json;

const char* const usage =
    "usage: kivnm [--system NAME] [--endpoints DIR] [--json] COMMAND ...\n"
    "  list [registered|unregistered|subscribed]   known names, or those of one status\n"
    "  show NAME|ID                                 the registration of one name\n"
    "  types                                        payload types\n"
    "  stats                                        notifications submitted so far\n"
    "  state [checked|relaxed]                      the subscription state, or switch it\n"
    "  send NAME TEXT [--severity S] [--sender S]   register NAME if needed, send TEXT\n"
    "  watch NAME...                                print notifications as they arrive, until Ctrl-C\n"
    "The system defaults to $KIV_SYSTEM or \"default\", the endpoints to $KIV_ENDPOINTS, else\n"
    "/run/kiv-tul for root and $XDG_RUNTIME_DIR/kiv-tul or /tmp/kiv-tul-UID for others: a user other than\n"
    "the broker's passes the broker's directory (e.g. KIV_ENDPOINTS=/run/kiv-tul), and KIV_SYSTEM_UID=UID\n"
    "when the broker runs neither as root nor as this user.\n";

/// A wrong command line: usage, exit code 2.
struct UsageError : std::invalid_argument
{
    using std::invalid_argument::invalid_argument;
};

class Cli
{
public:
    Cli(KivTools::SystemOptions system, bool json) : system(std::move(system)), json(json) {}

    int Run(const std::vector<std::string>& args)
    {
        // Each command checks its arguments before it connects, so that a wrong line is told as such: the
        // count here, the rest in the command.
        struct Command
        {
            const char* name;
            std::size_t minArguments;
            std::size_t maxArguments;
            int (Cli::*run)(const std::vector<std::string>& arguments);
        };
        constexpr std::size_t any = SIZE_MAX;
        static const Command commands[] = {
            {"list", 0, 1, &Cli::List},     {"show", 1, 1, &Cli::Show},   {"types", 0, 0, &Cli::Types},
            {"stats", 0, 0, &Cli::Stats},   {"state", 0, 1, &Cli::State}, {"send", 0, any, &Cli::Send},
            {"watch", 0, any, &Cli::Watch},
        };
        const std::string& name = args.at(0);
        const std::vector<std::string> rest(args.begin() + 1, args.end());
        const auto* command = std::find_if(std::begin(commands), std::end(commands),
                                           [&](const Command& c) { return name == c.name; });
        if (command == std::end(commands))
        {
            throw UsageError("unknown command " + name);
        }
        if (rest.size() < command->minArguments || rest.size() > command->maxArguments)
        {
            throw UsageError("unknown command or wrong arguments: " + name);
        }
        return (this->*command->run)(rest);
    }

private:
    void Connect()
    {
        system.connectWait = std::chrono::milliseconds(0);
        system.Apply();
        service = Fetch<INotificationManagerService, Services::NotificationManagerServiceProxyFactory>();
    }

    /// A service of the broker, or why there is none.
    template <class TService, class TProxyFactory>
    std::shared_ptr<TService> Fetch() const
    {
        try
        {
            return Services::FetchService<TService, TProxyFactory>();
        }
        catch (const Kiv::CommunicationException& e)
        {
            throw std::runtime_error(e.GetMessage().c_str());  // an endpoint that isn't to be trusted, say
        }
        catch (const Kiv::Exception&)
        {
            throw NoBroker(system);
        }
    }

    static std::runtime_error NoBroker(const KivTools::SystemOptions& system)
    {
        return std::runtime_error("no broker reachable for system '" + system.system + "' (endpoints in " +
                                  system.endpoints + ")");
    }

    int Print(const Json& value, const std::string& text) const
    {
        std::cout << (json ? value.dump() : text) << std::endl;
        return 0;
    }

    Json Registration(std::uint32_t id) const
    {
        const NotificationRegistrationInfo info = service->GetNotificationRegistration(id);
        const std::uint16_t typeId = info.GetPayloadTypeId().GetValue();
        return Json{
            {"id", id},
            {"name", info.GetNotificationName().c_str()},
            {"status", Kiv::GetEnumString(info.GetStatus())},
            {"severity", Kiv::GetEnumString(info.GetSeverity())},
            {"sender", info.GetSenderName().c_str()},
            {"payloadType", typeId == 0 ? "" : service->GetPayloadTypeName(typeId).ToString().c_str()}};
    }

    int List(const std::vector<std::string>& rest)
    {
        const std::optional<NotificationRegistrationStatus> status =
            rest.empty() ? std::nullopt : std::optional(ParseStatus(rest.at(0)));
        Connect();
        std::vector<std::uint32_t> ids = status ? service->GetNotificationNameIdsByStatus(*status)
                                                : service->GetAllKnownNotificationNameIds();
        std::sort(ids.begin(), ids.end());
        Json list = Json::array();
        std::ostringstream text;
        text << std::left << std::setw(6) << "ID" << std::setw(14) << "STATUS" << std::setw(10) << "SEVERITY"
             << "NAME";
        for (const auto id : ids)
        {
            const Json row = Registration(id);
            list.push_back(row);
            text << "\n"
                 << std::setw(6) << id << std::setw(14) << row["status"].get<std::string>() << std::setw(10)
                 << row["severity"].get<std::string>() << row["name"].get<std::string>();
        }
        return Print(list, text.str());
    }

    static NotificationRegistrationStatus ParseStatus(const std::string& text)
    {
        for (const auto status :
             {NotificationRegistrationStatus::Registered, NotificationRegistrationStatus::Unregistered,
              NotificationRegistrationStatus::Subscribed})
        {
            std::string name = Kiv::GetEnumString(status);
            std::transform(name.begin(), name.end(), name.begin(), ::tolower);
            if (name == text)
            {
                return status;
            }
        }
        throw UsageError("unknown status " + text + " (registered, unregistered or subscribed)");
    }

    int Show(const std::vector<std::string>& arguments)
    {
        const std::string& nameOrId = arguments[0];
        const bool numeric =
            !nameOrId.empty() && nameOrId.find_first_not_of("0123456789") == std::string::npos;
        if (numeric && (nameOrId.size() > 10 || std::stoull(nameOrId) > UINT32_MAX))
        {
            throw UsageError("a notification name id is at most 4294967295, not " + nameOrId);
        }
        Connect();
        const std::uint32_t id =
            numeric ? static_cast<std::uint32_t>(std::stoull(nameOrId))
                    : service->GetNotificationNameId(Services::ToTulString(nameOrId.c_str()));
        const Json row = Registration(id);
        std::ostringstream text;
        for (const auto& [key, value] : row.items())
        {
            text << std::left << std::setw(12) << (key + ":")
                 << (value.is_string() ? value.get<std::string>() : value.dump()) << "\n";
        }
        std::string out = text.str();
        out.pop_back();
        return Print(row, out);
    }

    int Types(const std::vector<std::string>&)
    {
        Connect();
        Json list = Json::array();
        std::ostringstream text;
        std::uint32_t id = 0;
        for (const std::string& name : PayloadTypeNames())
        {
            list.push_back(Json{{"id", ++id}, {"name", name}});
            text << (id > 1 ? "\n" : "") << std::left << std::setw(6) << id << name;
        }
        return Print(list, text.str());
    }

    /// The names by ascending id: in one question to the system's own information service, or, for a user
    /// whom only the public service admits, one question per id up to the first the broker doesn't know
    /// (ids are handed out from 1 without gaps).
    std::vector<std::string> PayloadTypeNames() const
    {
        std::vector<std::string> names;
        try
        {
            const auto info =
                Services::FetchService<Services::Internal::INotificationManagerInfoService,
                                       Services::Internal::NotificationManagerInfoServiceProxyFactory>();
            for (const auto& name : info->GetPayloadTypeNames())
            {
                names.emplace_back(name.GetChars());
            }
            return names;
        }
        catch (const Kiv::UnauthorizedAccessException&)
        {
        }
        for (std::uint32_t id = 1; id <= 0xFFFF; ++id)
        {
            try
            {
                names.emplace_back(
                    service->GetPayloadTypeName(static_cast<std::uint16_t>(id)).ToString().c_str());
            }
            catch (const Kiv::ArgumentException&)
            {
                break;
            }
        }
        return names;
    }

    int Stats(const std::vector<std::string>&)
    {
        Connect();
        return Print(
            Json{{"submitted", service->GetNumberOfSubmittedNotifications()}},
            "submitted notifications: " + std::to_string(service->GetNumberOfSubmittedNotifications()));
    }

    int State(const std::vector<std::string>& rest)
    {
        if (!rest.empty() && rest[0] != "checked" && rest[0] != "relaxed")
        {
            throw UsageError("state is checked or relaxed, not " + rest[0]);
        }
        Connect();
        const auto state =
            Fetch<ISubscriptionStateService, Services::Internal::SubscriptionStateServiceProxyFactory>();
        if (!rest.empty())
        {
            rest[0] == "checked" ? state->SetStateChecked() : state->SetStateRelaxed();
        }
        const std::string now = state->IsChecked() ? "checked" : "relaxed";
        return Print(Json{{"state", now}}, "subscription state: " + now);
    }

    int Send(const std::vector<std::string>& rest)
    {
        std::vector<std::string> positional;
        std::string sender = "kivnm";
        std::optional<Severity> severity;
        for (std::size_t i = 0; i < rest.size(); ++i)
        {
            if (rest[i] == "--severity" || rest[i] == "--sender")
            {
                if (i + 1 >= rest.size())
                {
                    throw UsageError(rest[i] + " needs a value");
                }
                if (rest[i] == "--sender")
                {
                    sender = rest[++i];
                    continue;
                }
                Severity value = Severity::Info;
                // "Internal" is the system's own and no sender's to choose.
                if (!Kiv::TryGetEnumValue(rest[++i].c_str(), value) || value == Severity::Internal)
                {
                    throw UsageError("unknown severity " + rest[i] +
                                     " (Info, Warning, Error, Critical, Fatal, Emerge)");
                }
                severity = value;
            }
            else
            {
                positional.push_back(rest[i]);
            }
        }
        if (positional.size() != 2)
        {
            throw UsageError("send takes NAME and TEXT");
        }
        // What every watcher can still format.
        constexpr std::size_t maxText = StringPayload::MaxFormattableLength;
        if (positional[1].size() > maxText)
        {
            throw UsageError("the text has " + std::to_string(positional[1].size()) +
                             " characters; a notification holds at most " + std::to_string(maxText));
        }
        Connect();
        const std::string typeName = StringPayload::GetPayloadTypeName().c_str();
        const std::uint32_t id = RegisterIfNeeded(positional[0], sender, severity, typeName);
        const std::uint64_t notificationId = service->SendNotification(
            id, Kiv::DateTime::GetUtcNow(), MakeStringPayload(typeName, positional[1]));
        if (notificationId == 0)
        {
            throw std::runtime_error("the broker's queue is full; the notification was dropped");
        }
        return Print(Json{{"nameId", id}, {"notificationId", notificationId}},
                     "sent notification " + std::to_string(notificationId) + " on " + positional[0]);
    }

    std::uint32_t RegisterIfNeeded(const std::string& name, const std::string& sender,
                                   std::optional<Severity> severity, const std::string& typeName)
    {
        try
        {
            const std::uint32_t id = service->GetNotificationNameId(Services::ToTulString(name.c_str()));
            const NotificationRegistrationInfo info = service->GetNotificationRegistration(id);
            if (info.IsRegistered())
            {
                // A registration keeps its severity: a different one asked for would be ignored unseen.
                if (severity && *severity != info.GetSeverity())
                {
                    throw std::runtime_error(name + " is registered with severity " +
                                             Kiv::GetEnumString(info.GetSeverity()) + ", not " +
                                             Kiv::GetEnumString(*severity));
                }
                return id;
            }
        }
        catch (const Kiv::ArgumentException&)
        {
            // Unknown in the checked state, or known without a row: registering makes it.
        }
        catch (const Kiv::InvalidOperationException&)
        {
        }
        return service->RegisterNotification(
            Services::ToTulString(name.c_str()), Services::ToTulString(sender.c_str()),
            severity.value_or(Severity::Info), Services::ToTulString(typeName.c_str()));
    }

    /// The values of a StringPayload. The broker is asked for the type's id all the same, which makes the
    /// type known there also when the name is registered with another one.
    std::vector<Kiv::System::Nm::TulVariant<512>> MakeStringPayload(const std::string& typeName,
                                                                    const std::string& text)
    {
        service->GetPayloadTypeId(Services::ToTulString(typeName.c_str()));
        return StringPayload::GetFields(Kiv::String(text.c_str()));
    }

    int Watch(const std::vector<std::string>& names);

    KivTools::SystemOptions system;
    bool json;
    std::shared_ptr<INotificationManagerService> service;
};

int Cli::Watch(const std::vector<std::string>& names)
{
    if (names.empty())
    {
        throw UsageError("watch takes at least one NAME");
    }
    const sigset_t signals = KivTools::BlockStopSignals();
    system.connectWait = std::chrono::milliseconds(2000);
    system.Apply();
    KivTools::SystemMembership membership("kivnm-watch-" + std::to_string(getpid()), "kivnm",
                                          std::chrono::seconds(10));
    try
    {
        membership.Join(false, Kiv::String(""));
    }
    catch (const Kiv::Exception&)
    {
        throw NoBroker(system);
    }

    std::mutex output;
    auto print = [&](const Notification& notification)
    {
        auto& manager = NotificationManager::GetInstance();
        const Json line{{"time", notification.GetTimestamp().ToIso8601String().c_str()},
                        {"id", notification.GetId().GetValue()},
                        {"name", manager.GetNotificationName(notification.GetNotificationNameId()).c_str()},
                        {"severity", Kiv::GetEnumString(notification.GetSeverity())},
                        {"payloadType", manager.GetPayloadTypeName(notification.GetPayloadTypeId()).c_str()},
                        {"text", GenericPayload(notification).ToString().c_str()}};
        std::lock_guard<std::mutex> lock(output);
        if (json)
        {
            std::cout << line.dump() << std::endl;
        }
        else
        {
            std::cout << line["time"].get<std::string>() << "  #" << line["id"] << "  "
                      << line["name"].get<std::string>() << "  [" << line["severity"].get<std::string>()
                      << "]  " << line["payloadType"].get<std::string>() << "  "
                      << line["text"].get<std::string>() << std::endl;
        }
    };

    int result = 0;
    {
        std::list<NotificationSubscriber> subscribers;
        try
        {
            for (const auto& name : names)
            {
                subscribers.emplace_back(name.c_str()).AddHandler(print);
            }
            if (!json)
            {
                std::cerr << "watching; Ctrl-C to stop" << std::endl;
            }
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
            result = KivTools::ReportFailure("kivnm", e);
        }
    }
    return result;
}
}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args;
    KivTools::SystemOptions system;
    bool json = false;
    try
    {
        const std::vector<std::string> all(argv + 1, argv + argc);
        for (std::size_t i = 0; i < all.size(); ++i)
        {
            if (all[i] == "--json")
            {
                json = true;
            }
            else if (system.Take(all, i))
            {
            }
            else if (all[i] == "-h" || all[i] == "--help")
            {
                std::cout << usage;
                return 0;
            }
            else
            {
                args.push_back(all[i]);
            }
        }
        if (args.empty())
        {
            throw UsageError("no command");
        }
        // The library's log lines would mix with the output; only errors are worth showing here.
        Kiv::System::Commons::Logging::LogManager::SetDefaultLogLevel(3);
        const int result = Cli(system, json).Run(args);
        Kiv::System::Tul::ServiceManager::Shutdown();
        return result;
    }
    catch (const std::invalid_argument& e)
    {
        // A UsageError, or an option without its value.
        std::cerr << "kivnm: " << e.what() << "\n" << usage;
        return 2;
    }
    catch (const Kiv::Exception& e)
    {
        std::cerr << "kivnm: " << e.GetMessage() << std::endl;
    }
    catch (const std::exception& e)
    {
        std::cerr << "kivnm: " << e.what() << std::endl;
    }
    Kiv::System::Tul::ServiceManager::Shutdown();
    return 1;
}
