#pragma once

#include <Kiv/DateTime.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulArrayInformation.h>
#include <Kiv/System/Tul/TulStringEncoding.h>
#include <Kiv/System/Tul/TulType.h>

#include <cstddef>
#include <cstdint>

namespace Kiv::System::Tul
{
/// The reading end of a message, the mirror of TulWriter. A message comes from another process and is
/// not trusted: every read checks what it finds and raises CommunicationException for a malformed message
/// (too short, a wrong tag, a length that cannot be right). After such an exception the message is to be
/// dropped; the reader's position is then unspecified.
class KIV_API TulReader
{
public:
    virtual ~TulReader();

    /// Reads a tag and raises unless it is `expected`.
    virtual void ReadTag(TulType expected) = 0;
    /// Reads the type code of an element, whatever it is. After Struct or Array the header's rest is read
    /// by ReadFieldCount or ReadArrayInformation.
    virtual TulType ReadObjectType() = 0;
    /// One scalar of `size` bytes into `data`.
    virtual void ReadDataInternal(void* data, std::size_t size) = 0;
    /// A length that the rest of the message can hold, one byte per element at least; so it is safe to
    /// reserve that many elements.
    virtual std::uint32_t ReadArrayLength() = 0;
    virtual DateTime ReadDateTime() = 0;
    /// Reads a string into `buffer` of `capacity` bytes, NUL-terminated also when the read fails; a text
    /// that doesn't fit with its NUL raises. `withCode` expects the String code in front.
    virtual void ReadStringInternal(char* buffer, std::size_t capacity, TulStringEncoding encoding,
                                    bool withCode) = 0;
    /// Reads a structure header and raises unless it announces `expectedFieldCount` fields.
    virtual void ReadBeginStruct(std::uint32_t expectedFieldCount) = 0;
    /// The field count of a structure header, with or without its object type read before.
    virtual std::uint32_t ReadFieldCount() = 0;
    /// The information of an array header, with or without its object type read before.
    virtual TulArrayInformation ReadArrayInformation() = 0;
    /// The flag of WriteConfirmation.
    virtual bool ReadConfirmation() = 0;

protected:
    TulReader() = default;
    TulReader(const TulReader&) = default;
    TulReader& operator=(const TulReader&) = default;
};
}  // namespace Kiv::System::Tul
