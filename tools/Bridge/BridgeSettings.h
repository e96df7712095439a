#pragma once

// The settings of kivnm-bridge, from an XML file read by the platform's settings reader with its
// strictness: a malformed file, a missing attribute and a bad value are refused with file and line, an
// unknown element is skipped with a warning.
//
//     <KivNmBridgeSettings>
//       <Broker host="127.0.0.1" port="1883" clientId="bridge-a" keepAlive="30" qos="1"
//               cleanSession="false"/>
//       <Credentials user="plant" passwordFile="/etc/kivnm/bridge.password"/>
//       <Tls caFile="ca.crt" certFile="client.crt" keyFile="client.key"/>
//       <Buffer notifications="10000"/>
//       <Reconnect minSeconds="1" maxSeconds="30"/>
//       <Topics prefix="kiv/plant-a"/>
//       <Export name="Demo.Plant"/>
//       <Import topic="kiv/+/Demo/#"/>
//     </KivNmBridgeSettings>
//
// All elements are optional and Export and Import may occur many times.

#include <Kiv/Xml/IXmlSerializable.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KivBridge
{
struct BridgeSettings : Kiv::System::Commons::Xml::IXmlSerializable
{
    std::string host = "127.0.0.1";
    int port = 1883;
    std::string clientId;  // default: "kivnm-bridge-<system>"
    int keepAlive = 30;
    int qos = 1;
    bool cleanSession = false;
    std::string user;
    std::string passwordFile;
    std::string caFile;
    std::string certFile;
    std::string keyFile;
    std::uint32_t bufferLimit = 10000;
    int reconnectMinSeconds = 1;
    int reconnectMaxSeconds = 30;
    std::string prefix;  // default: "kiv/<system>"
    std::vector<std::string> exports;
    std::vector<std::string> imports;

    /// Reads `path`; raises Kiv::XmlException.
    static BridgeSettings Load(const std::string& path);

    void ReadXml(Kiv::System::Commons::Xml::XmlReader& reader,
                 Kiv::System::Commons::Xml::XmlSerializationContext& context) override;
    void WriteXml(Kiv::System::Commons::Xml::XmlWriter&,
                  Kiv::System::Commons::Xml::XmlSerializationContext&) override
    {
    }
};

/// True if `name` is `subtree` or lies below it.
bool IsInSubtree(const std::string& name, const std::string& subtree);
}  // namespace KivBridge
