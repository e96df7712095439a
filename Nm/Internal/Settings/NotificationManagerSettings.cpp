#include <Nm/Internal/Settings/NotificationManagerSettings.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Xml/XmlConfigDocument.h>
#include <Kiv/Xml/XmlReader.h>

#include <boost/lexical_cast.hpp>

#include <climits>

namespace Kiv::System::Nm::Internal::Settings
{
using Commons::Xml::MultiXmlConfigDocument;
using Commons::Xml::XmlWriter;

NotificationManagerSettings::~NotificationManagerSettings() = default;

NotificationManagerSettings NotificationManagerSettings::LoadFromFile(const String& path)
{
    NotificationManagerSettings settings;
    if (path.empty())
    {
        return settings;
    }
    MultiXmlConfigDocument document(GetDocumentElementName(), settings);
    document.Load(path);
    return settings;
}

String NotificationManagerSettings::GetDocumentElementName()
{
    return "NotificationManagerSettingsDocument";
}

void NotificationManagerSettings::ReadXml(XmlReader& reader, XmlSerializationContext& context)
{
    const std::vector<ElementParsingFunc> elements{
        {"NotificationBroker", 0, &NotificationManagerSettings::ReadNotificationBroker},
        {"NonBlockingNotificationSendingProxy", 0,
         &NotificationManagerSettings::ReadNonBlockingNotificationSendingProxy}};
    ReadMaxElements(*this, elements, INT_MAX, reader, context);
}

void NotificationManagerSettings::WriteXml(XmlWriter&, XmlSerializationContext&) {}

std::uint32_t NotificationManagerSettings::ReadQueueLength(XmlReader& reader) const
{
    constexpr const char* attribute = "queueLength";
    char* raw = reader.GetAttributeValueInternal(attribute);
    if (raw == nullptr)
    {
        throw XmlException("GetAttributeValue failed for mandatory attribute: {0} elementName: {1}",
                           attribute, reader.GetElementLocalName());
    }
    const String value(raw);
    reader.FreeInternalAttributeValue(raw);

    unsigned int queueLength = 0;
    // lexical_cast's own rules: one sign, "-" wraps modulo 2^32, anything else refused.
    if (!boost::conversion::try_lexical_convert(value, queueLength))
    {
        throw XmlException("Cast of attribute {0} to {1} failed value: {2}", attribute, "unsigned int",
                           value);
    }
    ThrowIfQueueLengthIsInvalid(reader, queueLength);
    return queueLength;
}

void NotificationManagerSettings::ReadNotificationBroker(XmlReader& reader, XmlSerializationContext&)
{
    notificationBrokerQueueLength = ReadQueueLength(reader);
}

void NotificationManagerSettings::ReadNonBlockingNotificationSendingProxy(XmlReader& reader,
                                                                          XmlSerializationContext&)
{
    nonBlockingNotificationSendingProxyQueueLength = ReadQueueLength(reader);
}

void NotificationManagerSettings::ThrowIfQueueLengthIsInvalid(XmlReader& reader,
                                                              unsigned int queueLength) const
{
    if (queueLength == 0)
    {
        throw XmlException::AtLine(reader.GetFileName(), reader.GetLineNumber(),
                                   "The queue length must be positive.");
    }
}
}  // namespace Kiv::System::Nm::Internal::Settings
