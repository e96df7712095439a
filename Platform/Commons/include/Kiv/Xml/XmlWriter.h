#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Commons::Xml
{
/// The writing side of IXmlSerializable. Settings are never written, so it has no operations yet.
class KIV_API XmlWriter
{
};
}  // namespace Kiv::System::Commons::Xml
