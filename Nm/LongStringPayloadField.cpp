#include <Nm/GenericPayload.h>
#include <Nm/LongStringPayloadField.h>

#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm
{
using Tul::TulType;

LongStringPayloadField::LongStringPayloadField(GenericPayload& payload, std::uint32_t fieldIndexBegin)
    : payload(&payload), fieldIndexBegin(fieldIndexBegin)
{
}

std::uint32_t LongStringPayloadField::GetNumberOfFieldForString(std::string_view text)
{
    return static_cast<std::uint32_t>(text.size() / PieceLength) + 1;
}

std::uint32_t LongStringPayloadField::FieldIndexToFormatStringIndex(std::uint32_t fieldIndex)
{
    // Field 0 is the format string itself, so format argument k is field k + 1.
    return fieldIndex - 1;
}

void LongStringPayloadField::AddStringFields(std::uint32_t count)
{
    for (std::uint32_t i = 0; i < count; ++i)
    {
        payload->AddField(TulType::String);
    }
}

void LongStringPayloadField::CreatePayloadFieldsForString(std::string_view text)
{
    const std::uint32_t count = GetNumberOfFieldForString(text);
    payload->SetFieldValue(fieldIndexBegin, TulVariant<512>(count));
    AddStringFields(count);
}

void LongStringPayloadField::SetLongStringFieldValues(std::string_view text)
{
    std::uint32_t target = fieldIndexBegin + 1;
    // "<=" writes the empty last piece of a text whose length is a multiple of the piece length.
    for (std::size_t offset = 0; offset <= text.size(); offset += PieceLength, ++target)
    {
        const std::size_t rest = text.size() - offset;
        const std::size_t length = rest < PieceLength + 1 ? rest : PieceLength;
        payload->SetFieldValue(target, TulVariant<512>(text.data() + offset, length));
    }
}

std::uint32_t LongStringPayloadField::GetFieldCount() const
{
    std::uint32_t count = 0;
    payload->GetFieldValue(fieldIndexBegin).GetValue(count);
    return count;
}

String LongStringPayloadField::GetFormatString() const
{
    String format;
    const std::uint32_t count = GetFieldCount();
    for (std::uint32_t i = 0; i < count; ++i)
    {
        format += String::Format("{{{}}}", FieldIndexToFormatStringIndex(fieldIndexBegin + 1 + i));
    }
    return format;
}

String LongStringPayloadField::GetString() const
{
    String text;
    const std::uint32_t count = GetFieldCount();
    for (std::uint32_t i = 0; i < count; ++i)
    {
        text += payload->GetFieldValue(fieldIndexBegin + 1 + i).GetChars();
    }
    return text;
}

bool LongStringPayloadField::IsEmpty() const
{
    return GetFieldCount() == 1 && payload->GetFieldValue(fieldIndexBegin + 1).ToString().empty();
}
}  // namespace Kiv::System::Nm
