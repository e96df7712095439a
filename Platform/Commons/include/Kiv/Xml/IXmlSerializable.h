#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Commons::Xml
{
class XmlReader;
class XmlWriter;
class XmlSerializationContext;

/// An object that reads itself from (and writes itself to) XML. Derived classes stay copyable.
class KIV_API IXmlSerializable
{
public:
    virtual ~IXmlSerializable();
    /// Called with the reader on the start tag of the object's element.
    virtual void ReadXml(XmlReader& reader, XmlSerializationContext& context) = 0;
    virtual void WriteXml(XmlWriter& writer, XmlSerializationContext& context) = 0;

protected:
    IXmlSerializable() = default;
    IXmlSerializable(const IXmlSerializable&) = default;
    IXmlSerializable(IXmlSerializable&&) = default;
    IXmlSerializable& operator=(const IXmlSerializable&) = default;
    IXmlSerializable& operator=(IXmlSerializable&&) = default;
};
}  // namespace Kiv::System::Commons::Xml
