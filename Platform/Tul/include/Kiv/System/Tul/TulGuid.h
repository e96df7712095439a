#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <array>
#include <cstdint>

namespace Kiv::System::Tul
{
class TulWriter;

/// A 128-bit identifier, shown as "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" (bytes in order, lower-case hex).
struct KIV_API TulGuid
{
    std::array<std::uint8_t, 16> bytes{};

    String ToString() const;
    /// Writes the 16 bytes as they are.
    void Write(TulWriter& writer) const;

    bool operator==(const TulGuid& o) const { return bytes == o.bytes; }
};
}  // namespace Kiv::System::Tul
