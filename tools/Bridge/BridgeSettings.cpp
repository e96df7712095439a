#include "Bridge/BridgeSettings.h"

#include <Kiv/Exceptions.h>
#include <Kiv/Xml/XmlConfigDocument.h>
#include <Kiv/Xml/XmlReader.h>
#include <Kiv/Xml/XmlSerializationContext.h>

#include <mosquitto.h>

#include <climits>
#include <functional>
#include <map>

namespace KivBridge
{
namespace
{
using Kiv::XmlException;
using Kiv::System::Commons::Xml::XmlReader;
using Kiv::System::Commons::Xml::XmlSerializationContext;

/// The attributes of the element that the reader stands on, each read once and checked where it stands.
class Attributes
{
public:
    explicit Attributes(XmlReader& reader) : reader(reader) {}

    bool Has(const char* name) { return reader.TryGetAttributeValue(name, value); }

    std::string Text(const char* name, bool required = false)
    {
        if (!Has(name))
        {
            if (required)
            {
                Fail(std::string("missing attribute '") + name + "'");
            }
            return "";
        }
        return value.c_str();
    }

    int Number(const char* name, int fallback, int min, int max)
    {
        if (!Has(name))
        {
            return fallback;
        }
        const std::string text = value.c_str();
        std::size_t used = 0;
        long long number = 0;
        try
        {
            number = std::stoll(text, &used, 10);
        }
        catch (const std::exception&)
        {
            used = 0;
        }
        if (used == 0 || used != text.size() || text[0] == ' ' || number < min || number > max)
        {
            Fail(std::string("bad value '") + text + "' of attribute '" + name + "': an integer from " +
                 std::to_string(min) + " to " + std::to_string(max) + " is expected");
        }
        return static_cast<int>(number);
    }

    bool Flag(const char* name, bool fallback)
    {
        if (!Has(name))
        {
            return fallback;
        }
        const std::string text = value.c_str();
        if (text != "true" && text != "false")
        {
            Fail(std::string("bad value '") + text + "' of attribute '" + name +
                 "': true or false is expected");
        }
        return text == "true";
    }

    [[noreturn]] void Fail(const std::string& message)
    {
        throw XmlException::AtLine(
            reader.GetFileName(), reader.GetLineNumber(),
            Kiv::String(
                ("element '" + std::string(reader.GetElementLocalName().c_str()) + "': " + message).c_str()));
    }

private:
    XmlReader& reader;
    Kiv::String value;
};

bool IsDottedName(const std::string& name)
{
    if (name.empty() || name.size() >= 512 || name.front() == '.' || name.back() == '.' ||
        name.find("..") != std::string::npos)
    {
        return false;
    }
    return name.find_first_of("/#+ \t") == std::string::npos;
}
}  // namespace

bool IsInSubtree(const std::string& name, const std::string& subtree)
{
    return name == subtree || (name.size() > subtree.size() &&
                               name.compare(0, subtree.size(), subtree) == 0 && name[subtree.size()] == '.');
}

BridgeSettings BridgeSettings::Load(const std::string& path)
{
    BridgeSettings settings;
    Kiv::System::Commons::Xml::MultiXmlConfigDocument document("KivNmBridgeSettings", settings);
    document.Load(path.c_str());
    return settings;
}

void BridgeSettings::ReadXml(XmlReader& reader, XmlSerializationContext& context)
{
    const std::map<std::string, std::function<void(Attributes&)>> elements{
        {"Broker",
         [this](Attributes& a)
         {
             host = a.Text("host").empty() ? host : a.Text("host");
             port = a.Number("port", port, 1, 65535);
             clientId = a.Text("clientId");
             keepAlive = a.Number("keepAlive", keepAlive, 5, 65535);
             qos = a.Number("qos", qos, 0, 1);
             cleanSession = a.Flag("cleanSession", cleanSession);
         }},
        {"Credentials",
         [this](Attributes& a)
         {
             user = a.Text("user", true);
             passwordFile = a.Text("passwordFile");
         }},
        {"Tls",
         [this](Attributes& a)
         {
             caFile = a.Text("caFile", true);
             certFile = a.Text("certFile");
             keyFile = a.Text("keyFile");
             if (certFile.empty() != keyFile.empty())
             {
                 a.Fail("certFile and keyFile go together");
             }
         }},
        {"Buffer", [this](Attributes& a)
         { bufferLimit = static_cast<std::uint32_t>(a.Number("notifications", 10000, 1, INT_MAX)); }},
        {"Reconnect",
         [this](Attributes& a)
         {
             reconnectMinSeconds = a.Number("minSeconds", reconnectMinSeconds, 1, 3600);
             reconnectMaxSeconds = a.Number("maxSeconds", reconnectMaxSeconds, reconnectMinSeconds, 3600);
         }},
        {"Topics",
         [this](Attributes& a)
         {
             prefix = a.Text("prefix", true);
             if (mosquitto_pub_topic_check(prefix.c_str()) != MOSQ_ERR_SUCCESS || prefix.back() == '/')
             {
                 a.Fail("bad value '" + prefix +
                        "' of attribute 'prefix': a topic without wildcards or a "
                        "trailing '/' is expected");
             }
         }},
        {"Export",
         [this](Attributes& a)
         {
             const std::string name = a.Text("name", true);
             if (!IsDottedName(name))
             {
                 a.Fail("bad value '" + name +
                        "' of attribute 'name': a dotted notification name is expected");
             }
             exports.push_back(name);
         }},
        {"Import",
         [this](Attributes& a)
         {
             const std::string topic = a.Text("topic", true);
             if (mosquitto_sub_topic_check(topic.c_str()) != MOSQ_ERR_SUCCESS)
             {
                 a.Fail("bad value '" + topic + "' of attribute 'topic': an MQTT topic filter is expected");
             }
             imports.push_back(topic);
         }},
    };
    Kiv::String name;
    while (reader.TryReadStartElement(name, true))
    {
        const auto element = elements.find(name.c_str());
        if (element == elements.end())
        {
            context.InvalidXmlElementOccurs(reader, name.c_str());
        }
        else
        {
            Attributes attributes(reader);
            element->second(attributes);
        }
        reader.ReadEndElement();
    }
}
}  // namespace KivBridge
