#include <Nm/StringPayload.h>

namespace Kiv::System::Nm
{
StringPayload::StringPayload(const String& text)
    : SpecializedPayload(String()), text(payload, payload.AddField(Tul::TulType::UInt32))
{
    this->text.CreatePayloadFieldsForString(text);
    this->text.SetLongStringFieldValues(text);
    SetFormatString(this->text.GetFormatString());
}

StringPayload::StringPayload(const char* text) : StringPayload(String(text)) {}

// The field refers to the payload of its own object, never to the one it was copied from.
StringPayload::StringPayload(const StringPayload& other)
    : SpecializedPayload(other), text(payload, other.text.GetFieldIndexBegin())
{
}

StringPayload& StringPayload::operator=(const StringPayload& other)
{
    SpecializedPayload::operator=(other);
    text = LongStringPayloadField(payload, other.text.GetFieldIndexBegin());
    return *this;
}
}  // namespace Kiv::System::Nm
