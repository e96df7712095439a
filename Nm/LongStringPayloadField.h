#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <cstdint>
#include <string_view>

namespace Kiv::System::Nm
{
class GenericPayload;

/// One text of any length spread over a run of payload fields: a count field (made by the owner) and as
/// many String fields of up to 511 characters as the text needs, always ending in a piece shorter than
/// 511. Its format string concatenates the pieces, so the formatter needs no knowledge of it.
class KIV_API LongStringPayloadField
{
public:
    static constexpr std::uint32_t PieceLength = 511;

    /// `payload` is not owned; the count field at `fieldIndexBegin` must exist.
    LongStringPayloadField(GenericPayload& payload, std::uint32_t fieldIndexBegin);

    std::uint32_t GetFieldIndexBegin() const { return fieldIndexBegin; }
    static std::uint32_t GetNumberOfFieldForString(std::string_view text);
    static std::uint32_t FieldIndexToFormatStringIndex(std::uint32_t fieldIndex);

    void AddStringFields(std::uint32_t count);
    /// Sets the count for `text` and declares its pieces.
    void CreatePayloadFieldsForString(std::string_view text);
    void SetLongStringFieldValues(std::string_view text);
    std::uint32_t GetFieldCount() const;
    /// One numbered placeholder per piece, e.g. "{1}{2}{3}".
    String GetFormatString() const;
    String GetString() const;
    bool IsEmpty() const;

private:
    GenericPayload* payload;
    std::uint32_t fieldIndexBegin;
};
}  // namespace Kiv::System::Nm
