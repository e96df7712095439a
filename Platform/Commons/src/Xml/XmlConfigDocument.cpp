#include <Kiv/Exceptions.h>
#include <Kiv/Xml/XmlConfigDocument.h>

namespace Kiv::System::Commons::Xml
{
XmlConfigDocument::XmlConfigDocument(const String& documentElementName, IXmlSerializable& object)
    : documentElementName(documentElementName), object(object)
{
}

XmlConfigDocument::~XmlConfigDocument() = default;

void XmlConfigDocument::Read(XmlReader& reader, XmlSerializationContext& context)
{
    String name;
    if (!reader.TryReadStartElement(name, true))
    {
        throw XmlException::AtLine(reader.GetFileName(), reader.GetLineNumber(),
                                   "The document has no element");
    }
    if (name != documentElementName)
    {
        throw XmlException::AtLine(reader.GetFileName(), reader.GetLineNumber(),
                                   String::Format("Document element '{0}' found where '{1}' is expected",
                                                  name, documentElementName));
    }
    object.ReadXml(reader, context);
    reader.ReadToEnd();
}

void MultiXmlConfigDocument::Load(const String& path)
{
    XmlSerializationContext context;
    Load(path, context);
}

void MultiXmlConfigDocument::Load(const String& path, XmlSerializationContext& context)
{
    XmlReader reader(path);
    Read(reader, context);
}
}  // namespace Kiv::System::Commons::Xml
