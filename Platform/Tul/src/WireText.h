#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/System/Tul/TulReader.h>
#include <Kiv/System/Tul/TulWriter.h>

namespace Kiv::System::Tul::Internal
{
/// A text of any length in the transport's own messages: its byte count as an array length, then its
/// bytes. The reader's length check keeps a hostile count from allocating more than the message holds.
inline void WriteText(TulWriter& writer, const String& text)
{
    writer.WriteArrayLength(static_cast<std::uint32_t>(text.size()));
    writer.WriteDataInternal(text.data(), text.size());
}

inline String ReadText(TulReader& reader)
{
    String text(reader.ReadArrayLength(), '\0');
    reader.ReadDataInternal(text.data(), text.size());
    return text;
}
}  // namespace Kiv::System::Tul::Internal
