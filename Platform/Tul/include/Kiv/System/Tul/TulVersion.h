#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <cstdint>

namespace Kiv::System::Tul
{
class TulWriter;

/// A four-part version number, "major.minor.build.revision".
struct KIV_API TulVersion
{
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    std::uint16_t build = 0;
    std::uint16_t revision = 0;

    String ToString() const;
    /// Writes the four parts as uint16, in order.
    void Write(TulWriter& writer) const;

    bool operator==(const TulVersion& o) const
    {
        return major == o.major && minor == o.minor && build == o.build && revision == o.revision;
    }
};
}  // namespace Kiv::System::Tul
