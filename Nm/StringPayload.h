#pragma once

#include <Nm/LongStringPayloadField.h>
#include <Nm/SpecializedPayload.h>

#include <Kiv/Export.h>

#include <cstddef>
#include <string_view>
#include <vector>

namespace Kiv::System::Nm
{
/// A payload of one text of any length that fits the format string's limit (62852 characters; the text
/// form works up to 24527), spread over fields of 511 characters.
class KIV_API StringPayload : public SpecializedPayload<StringPayload>
{
public:
    /// The longest text whose text form (ToString) can be made.
    static constexpr std::size_t MaxFormattableLength = 24527;

    explicit StringPayload(const String& text);
    /// `text` must not be null.
    explicit StringPayload(const char* text);
    /// The fields of a StringPayload of `text`, made without asking for the type's id: what a client of the
    /// public service sends, which has no NotificationManager to ask (the broker takes the payload type
    /// from the registration).
    static std::vector<TulVariant<512>> GetFields(const String& text);

    StringPayload(const StringPayload& other);
    StringPayload& operator=(const StringPayload& other);

private:
    StringPayload(PayloadTypeId payloadTypeId, std::string_view text);

    LongStringPayloadField text;
};
}  // namespace Kiv::System::Nm
