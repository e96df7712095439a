#include <Kiv/Exceptions.h>
#include <Kiv/Logging/LoggerBase.h>
#include <Kiv/TypeNames.h>
#include <Kiv/Xml/IXmlSerializable.h>
#include <Kiv/Xml/XmlReader.h>
#include <Kiv/Xml/XmlSerializationContext.h>

namespace Kiv::System::Commons::Xml
{
IXmlSerializable::~IXmlSerializable() = default;

XmlSerializationContext::~XmlSerializationContext() = default;

void XmlSerializationContext::InvalidXmlElementOccurs(XmlReader& reader, const char* name)
{
    static Logging::LoggerBase logger(DottedTypeName(typeid(XmlSerializationContext)));
    if (!logger.IsEnabled(Logging::LogLevel::Warning))
    {
        return;
    }
    const String text = String::Format("Unknown XML element '{0}' is skipped.", name != nullptr ? name : "");
    logger.Log(Logging::LogLevel::Warning, XmlException::fileLineMessage, reader.GetFileName(),
               reader.GetLineNumber(), text);
}
}  // namespace Kiv::System::Commons::Xml
