#pragma once

#include <cstdint>

namespace Kiv::System::Tul
{
/// The header of an array on the wire: four 32-bit words.
struct TulArrayInformation
{
    /// The TulType code of the elements, widened.
    std::uint32_t elementType = 0;
    /// Number of dimensions; 1 for a plain array.
    std::uint32_t rank = 0;
    /// Number of elements.
    std::uint32_t length = 0;
    /// Index of the first element.
    std::uint32_t lowerBound = 0;

    bool operator==(const TulArrayInformation& o) const
    {
        return elementType == o.elementType && rank == o.rank && length == o.length && lowerBound == o.lowerBound;
    }
};
static_assert(sizeof(TulArrayInformation) == 16, "four 32-bit words");
}  // namespace Kiv::System::Tul
