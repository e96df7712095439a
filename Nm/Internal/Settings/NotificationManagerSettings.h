#pragma once

#include <Nm/Internal/Settings/ConfigReader.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/Xml/IXmlSerializable.h>

#include <cstdint>

namespace Kiv::System::Nm::Internal::Settings
{
/// The two queue lengths of the library, read once at setup from the settings file:
///
///     <NotificationManagerSettingsDocument>
///       <NotificationBroker queueLength="2048"/>
///       <NonBlockingNotificationSendingProxy queueLength="256"/>
///     </NotificationManagerSettingsDocument>
///
/// Both elements are optional; what is missing keeps its default (1024 and 128).
class KIV_API NotificationManagerSettings : public Commons::Xml::IXmlSerializable,
                                            public ConfigReader<NotificationManagerSettings>
{
public:
    NotificationManagerSettings() = default;
    ~NotificationManagerSettings() override;

    /// The settings of the file at `path`; the defaults, without touching any file, for an empty path.
    /// Errors of the file and of its values raise XmlException.
    static NotificationManagerSettings LoadFromFile(const String& path);
    static String GetDocumentElementName();

    std::uint32_t GetNotificationBrokerQueueLength() const { return notificationBrokerQueueLength; }
    std::uint32_t GetNonBlockingNotificationSendingProxyQueueLength() const
    {
        return nonBlockingNotificationSendingProxyQueueLength;
    }

    void ReadXml(XmlReader& reader, XmlSerializationContext& context) override;
    /// Settings are never written back.
    void WriteXml(Commons::Xml::XmlWriter& writer, XmlSerializationContext& context) override;

    std::uint32_t ReadQueueLength(XmlReader& reader) const;
    void ReadNotificationBroker(XmlReader& reader, XmlSerializationContext& context);
    void ReadNonBlockingNotificationSendingProxy(XmlReader& reader, XmlSerializationContext& context);
    void ThrowIfQueueLengthIsInvalid(XmlReader& reader, unsigned int queueLength) const;

private:
    std::uint32_t notificationBrokerQueueLength = 1024;
    std::uint32_t nonBlockingNotificationSendingProxyQueueLength = 128;
};
}  // namespace Kiv::System::Nm::Internal::Settings
