#pragma once

#include <cstdint>

namespace Kiv::System::Tul
{
/// How the bytes of a string on the wire are to be read.
enum class TulStringEncoding : std::uint8_t
{
    Ascii = 1,
    Utf8 = 2
};
}  // namespace Kiv::System::Tul
