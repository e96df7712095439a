#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Commons::Xml
{
class XmlReader;

/// What a reading needs beyond the reader: here, the reaction to an unexpected element. Derive and
/// override to decide otherwise (for example, to raise).
class KIV_API XmlSerializationContext
{
public:
    XmlSerializationContext() = default;
    XmlSerializationContext(const XmlSerializationContext&) = default;
    XmlSerializationContext& operator=(const XmlSerializationContext&) = default;
    virtual ~XmlSerializationContext();

    /// An element that the reading object doesn't know. Logs a warning (level 5) on the logger
    /// "Kiv.System.Commons.Xml.XmlSerializationContext", "{file}({line}): Unknown XML element '{name}'
    /// is skipped.", and returns; the caller skips the element.
    virtual void InvalidXmlElementOccurs(XmlReader& reader, const char* name);
};
}  // namespace Kiv::System::Commons::Xml
