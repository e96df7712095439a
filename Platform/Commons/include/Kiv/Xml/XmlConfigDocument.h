#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/Xml/IXmlSerializable.h>
#include <Kiv/Xml/XmlReader.h>
#include <Kiv/Xml/XmlSerializationContext.h>

namespace Kiv::System::Commons::Xml
{
/// A configuration document: an XML file whose document element has a fixed name and is read by one
/// IXmlSerializable. Neither is owned; the object must outlive the document.
class KIV_API XmlConfigDocument
{
public:
    XmlConfigDocument(const String& documentElementName, IXmlSerializable& object);
    XmlConfigDocument(const XmlConfigDocument&) = delete;
    XmlConfigDocument& operator=(const XmlConfigDocument&) = delete;
    virtual ~XmlConfigDocument();

    const String& GetDocumentElementName() const noexcept { return documentElementName; }
    IXmlSerializable& GetObject() const noexcept { return object; }

protected:
    /// Reads the document element from `reader`, which has read nothing yet, checks its local name
    /// against the expected one (exactly, case included), calls ReadXml of the object with the reader on
    /// its start tag, and reads the rest of the file. Raises XmlException "{file}({line}): Document
    /// element '{found}' found where '{expected}' is expected" for another name; errors of the reader
    /// and of ReadXml pass through.
    void Read(XmlReader& reader, XmlSerializationContext& context);

private:
    String documentElementName;
    IXmlSerializable& object;
};

/// A configuration document read from files. Each Load reads one file into the same object, so that
/// several files may be loaded in turn, later ones overriding what earlier ones set.
class KIV_API MultiXmlConfigDocument : public XmlConfigDocument
{
public:
    using XmlConfigDocument::XmlConfigDocument;

    /// Opens `path` (as given; relative to the working directory), checks the document element, calls
    /// ReadXml of the object and reads the file to its end, with a default XmlSerializationContext. A
    /// missing or unreadable file, malformed XML anywhere in the file and a wrong document element raise
    /// Kiv::XmlException naming the file and, where there is one, the line.
    void Load(const String& path);
    /// The same with the caller's context.
    void Load(const String& path, XmlSerializationContext& context);
};
}  // namespace Kiv::System::Commons::Xml
