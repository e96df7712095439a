// A component of a test system on the far side of a bridge, driven by commands on its standard input:
//   subscribe NAME                           print each notification of NAME as a JSON line
//   send NAME SEVERITY COUNT text|all [MS]   register NAME if need be and send COUNT notifications, MS
//                                            apart: a StringPayload "NAME #i", or one field of every type
// It answers each command with "ok" (a send also prints what it sent, as JSON) or "error ...".
// Usage: BridgePeer --system S --endpoints D --name N

#include "Bridge/NotificationJson.h"
#include "Common/Component.h"

#include <Nm/EnumDictionary.h>
#include <Nm/GenericPayload.h>
#include <Nm/INotificationSubscriber.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/StringPayload.h>

#include <cstdio>
#include <iostream>
#include <limits>
#include <list>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

using namespace Kiv::System::Nm;
using KivBridge::Json;
using KivBridge::Variant;

namespace
{
std::mutex output;

void Print(const std::string& line)
{
    std::lock_guard<std::mutex> lock(output);
    std::cout << line << std::endl;
}

Json Describe(const Notification& notification)
{
    auto& manager = NotificationManager::GetInstance();
    Json fields = Json::array();
    for (const auto& field : notification.GetPayload())
    {
        fields.push_back(KivBridge::FieldToJson(field));
    }
    std::string text;
    try
    {
        text = GenericPayload(notification).ToString().c_str();
    }
    catch (const Kiv::Exception&)
    {
        text = "(no text form)";
    }
    return Json{{"name", manager.GetNotificationName(notification.GetNotificationNameId()).c_str()},
                {"severity", Kiv::GetEnumString(notification.GetSeverity())},
                {"payloadType", manager.GetPayloadTypeName(notification.GetPayloadTypeId()).c_str()},
                {"timestamp", notification.GetTimestamp().GetRawValue()},
                {"fields", fields},
                {"text", text}};
}

/// One field of every type that crosses between processes, with values at their edges.
std::vector<Variant> EveryType(int index)
{
    Variant text36(Kiv::System::Tul::TulType::String36);
    std::snprintf(static_cast<char*>(text36.GetData()), 512, "{text} #%d", index);
    Variant structure(Kiv::System::Tul::TulType::Struct);
    structure.SetFieldCount(3);
    Variant array(Kiv::System::Tul::TulType::Array);
    array.SetArrayInformation({9, 1, 4, 0});
    return {Variant("every type #{0}"),
            Variant(index),
            Variant(Kiv::System::Tul::TulType::Void),
            Variant(true),
            Variant(std::int8_t{-128}),
            Variant(std::uint8_t{255}),
            Variant(std::int16_t{-32768}),
            Variant(std::uint16_t{65535}),
            Variant(std::numeric_limits<std::int32_t>::min()),
            Variant(std::numeric_limits<std::uint32_t>::max()),
            Variant(std::numeric_limits<std::int64_t>::min()),
            Variant(std::numeric_limits<std::uint64_t>::max()),
            Variant(0.1f),
            Variant(-1.0 / 3.0),
            Variant(std::numeric_limits<double>::infinity()),
            Variant(std::numeric_limits<double>::quiet_NaN()),
            structure,
            Variant(std::string(511, 'x').c_str()),
            array,
            Variant(Kiv::DateTime(Kiv::DateTime::UnixEpochTicks + 1234567, Kiv::DateTimeKind::Utc)),
            text36};
}
}  // namespace

int main(int argc, char** argv)
{
    KivTools::SystemOptions system;
    std::map<std::string, std::string> options{{"--name", "Peer"}};
    if (!KivTools::ParseOptions(argc, argv, system, options, "BridgePeer",
                                "usage: BridgePeer --system S --endpoints D --name N\n"))
    {
        return 1;
    }
    const auto membership = KivTools::JoinSystem(system, options["--name"], "BridgePeer");
    if (!membership)
    {
        return 1;
    }
    {
        auto& manager = NotificationManager::GetInstance();
        // Complete before it subscribes: a handler attached afterwards would race with the first delivery.
        struct Printer : INotificationSubscriber
        {
            void Notify(const Notification& n) override { Print(Describe(n).dump()); }
        } printer;
        std::map<std::string, NotificationNameId> registered;
        for (std::string line; std::getline(std::cin, line) && line != "exit";)
        {
            std::istringstream in(line);
            std::string command, name, severityText, kind;
            int count = 0, pauseMs = 0;
            in >> command >> name;
            try
            {
                if (command == "subscribe")
                {
                    manager.Subscribe(name.c_str(), &printer);
                }
                else if (command == "send" && (in >> severityText >> count >> kind))
                {
                    in >> pauseMs;
                    Severity severity = Severity::Info;
                    Kiv::TryGetEnumValue(severityText.c_str(), severity);
                    const std::string typeName =
                        kind == "all" ? "Test::EveryType" : StringPayload::GetPayloadTypeName().c_str();
                    const PayloadTypeId typeId = manager.GetPayloadTypeId(typeName.c_str());
                    if (registered.count(name) == 0)
                    {
                        registered[name] =
                            manager.RegisterNotification(name.c_str(), "Peer", severity, typeId);
                    }
                    for (int i = 0; i < count; ++i)
                    {
                        const std::string text = name + " #" + std::to_string(i);
                        const std::vector<Variant> fields =
                            kind == "all" ? EveryType(i) : StringPayload(text.c_str()).GetAsRawPayloadType();
                        const auto stamp = Kiv::DateTime::GetUtcNow();
                        if (manager.SendNotification(registered[name], stamp, fields).GetValue() == 0)
                        {
                            throw std::runtime_error("queue full");
                        }
                        if (kind == "all")
                        {
                            Json sent = Json::array();
                            for (const auto& field : fields)
                            {
                                sent.push_back(KivBridge::FieldToJson(field));
                            }
                            Print(Json{{"sent", sent}, {"timestamp", stamp.GetRawValue()}}.dump());
                        }
                        std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
                    }
                }
                else
                {
                    throw std::runtime_error("unknown command: " + line);
                }
                Print("ok");
            }
            catch (const Kiv::Exception& e)
            {
                Print(std::string("error ") + e.GetMessage().c_str());
            }
            catch (const std::exception& e)
            {
                Print(std::string("error ") + e.what());
            }
        }
        manager.UnsubscribeFromAll(&printer);
    }
    return 0;
}
