#pragma once

#include <Nm/TulVariant.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <cstddef>
#include <vector>

namespace Kiv::System::Nm::Internal
{
/// The text form of a payload that needs no knowledge of its class: field 0 is the format string, the
/// other fields are its arguments, all rendered as text first. Lives for one call; the vector must
/// outlive it.
class KIV_API PayloadFormatter
{
public:
    /// One more than the largest field count that can be formatted.
    static constexpr std::size_t MaxFieldCount = 51;

    explicit PayloadFormatter(const std::vector<TulVariant<512>>& payload) : payload(payload) {}

    /// The text. Raises NotSupportedException for 51 fields or more and for a field that has no text
    /// form, and Exception for a bad format string; a field's failure comes before the format's.
    String ToString() const;

    /// FormatValue of each field, in order.
    static std::vector<String> FormatValues(const std::vector<TulVariant<512>>& payload);

    /// The text of one field. Bytes come out as one character of that code, not as a number.
    static String FormatValue(const TulVariant<512>& value);

private:
    const std::vector<TulVariant<512>>& payload;
};
}  // namespace Kiv::System::Nm::Internal
