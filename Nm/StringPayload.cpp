#include <Nm/Internal/PayloadFormatter.h>
#include <Nm/StringPayload.h>

namespace Kiv::System::Nm
{
// The formatter takes fewer than MaxFieldCount fields, and the format string and the count are two of them.
static_assert(StringPayload::MaxFormattableLength ==
                  (Internal::PayloadFormatter::MaxFieldCount - 3) * LongStringPayloadField::PieceLength - 1,
              "the text form's limit follows from the formatter's");

StringPayload::StringPayload(const String& text) : StringPayload(GetPayloadTypeId(), text) {}

StringPayload::StringPayload(PayloadTypeId payloadTypeId, std::string_view text)
    : SpecializedPayload(payloadTypeId, String()), text(payload, payload.AddField(Tul::TulType::UInt32))
{
    this->text.CreatePayloadFieldsForString(text);
    this->text.SetLongStringFieldValues(text);
    SetFormatString(this->text.GetFormatString());
}

// No String is made of the text: a send builds one payload after another.
StringPayload::StringPayload(const char* text) : StringPayload(GetPayloadTypeId(), std::string_view(text)) {}

std::vector<TulVariant<512>> StringPayload::GetFields(const String& text)
{
    return StringPayload(PayloadTypeId(), text).GetAsRawPayloadType();
}

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
