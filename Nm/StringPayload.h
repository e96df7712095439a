#pragma once

#include <Nm/LongStringPayloadField.h>
#include <Nm/SpecializedPayload.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm
{
/// A payload of one text of any length that fits the format string's limit (62852 characters; the text
/// form works up to 24527), spread over fields of 511 characters.
class KIV_API StringPayload : public SpecializedPayload<StringPayload>
{
public:
    explicit StringPayload(const String& text);
    /// `text` must not be null.
    explicit StringPayload(const char* text);

    StringPayload(const StringPayload& other);
    StringPayload& operator=(const StringPayload& other);

private:
    LongStringPayloadField text;
};
}  // namespace Kiv::System::Nm
