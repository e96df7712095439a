#pragma once

#include <Kiv/Exceptions.h>
#include <Kiv/Xml/XmlReader.h>
#include <Kiv/Xml/XmlSerializationContext.h>

#include <algorithm>
#include <map>

namespace Kiv::System::Nm::Internal::Settings
{
template <class T>
void ConfigReader<T>::ReadMaxElements(T& object, const std::vector<ElementParsingFunc>& elements,
                                      int maxElements, XmlReader& reader, XmlSerializationContext& context)
{
    std::map<String, int> required;
    for (const auto& element : elements)
    {
        if (element.minOccurs >= 1)
        {
            required.emplace(element.elementName, 0);
        }
    }

    String name;
    for (int count = 0; count < maxElements; ++count)
    {
        if (!reader.TryReadStartElement(name, true))
        {
            break;
        }
        const auto row =
            std::find_if(elements.begin(), elements.end(),
                         [&name](const ElementParsingFunc& element) { return element.elementName == name; });
        if (row != elements.end())
        {
            (object.*(row->readMethod))(reader, context);
        }
        else
        {
            context.InvalidXmlElementOccurs(reader, name.c_str());
            reader.SkipElementContent();
        }
        if (auto seen = required.find(name); seen != required.end())
        {
            ++seen->second;
        }
        reader.ReadEndElement();
    }

    for (const auto& [elementName, occurrences] : required)
    {
        if (occurrences == 0)
        {
            throw XmlException::AtLine(reader.GetFileName(), reader.GetLineNumber(),
                                       String::Format("Missing XML element '{0}'", elementName));
        }
    }
}
}  // namespace Kiv::System::Nm::Internal::Settings
