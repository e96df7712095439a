#pragma once

// Conversions at the boundary between the services' wire types and the system's own.

#include <Nm/IdType.h>
#include <Nm/TulString.h>

#include <Kiv/BasicString.h>
#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm::Services
{
/// The text up to the first zero byte.
inline String ToString(const TulString<512>& text)
{
    return text.ToString();
}

/// Every String that goes to a service travels as a fixed string; 512 characters or more don't fit.
inline TulString<512> ToTulString(const String& text)
{
    if (text.size() >= TulString<512>::MaxStringSize)
    {
        throw ArgumentException::Create("arg", text, "Input string is too long");
    }
    return TulString<512>(text);
}
}  // namespace Kiv::System::Nm::Services
