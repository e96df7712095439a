#pragma once

#include <cstdint>

namespace Kiv::System::Tul
{
/// Why the server side refuses a request.
enum class TulErrors : std::uint32_t
{
    /// The stub has no method of the requested id.
    UnknownMethod = 0x40000003
};
}  // namespace Kiv::System::Tul
