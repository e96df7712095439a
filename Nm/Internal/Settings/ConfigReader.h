#pragma once

#include <Kiv/BasicString.h>

#include <vector>

namespace Kiv::System::Commons::Xml
{
class XmlReader;
class XmlSerializationContext;
}  // namespace Kiv::System::Commons::Xml

namespace Kiv::System::Nm::Internal::Settings
{
/// Reads the child elements of a settings element by a table of known names.
template <class T>
class ConfigReader
{
public:
    using XmlReader = Commons::Xml::XmlReader;
    using XmlSerializationContext = Commons::Xml::XmlSerializationContext;

    struct ElementParsingFunc
    {
        String elementName;
        /// Below 1: optional; 1 or more: must occur at least once (a second occurrence is never demanded).
        int minOccurs;
        void (T::*readMethod)(XmlReader&, XmlSerializationContext&);
    };

    /// Reads at most `maxElements` children of the open element, each by the first row of its name; an
    /// unknown one goes to the context and is skipped. Raises XmlException "Missing XML element '{0}'"
    /// (with file and line) for the first required name, in name order, that did not occur.
    static void ReadMaxElements(T& object, const std::vector<ElementParsingFunc>& elements, int maxElements,
                                XmlReader& reader, XmlSerializationContext& context);
};
}  // namespace Kiv::System::Nm::Internal::Settings

#include <Nm/Internal/Settings/ConfigReader.inl>
