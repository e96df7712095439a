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
/// The writing end of a message: the calls that serialisers and service proxies and stubs use. A
/// TulReader reads what these calls write, call for call (see RemotingWriter for the bytes).
class KIV_API TulWriter
{
public:
    virtual ~TulWriter();

    /// The type code in front of a typed value.
    virtual void WriteTag(TulType tag) = 0;
    /// The type code of an element of a self-describing sequence; the same byte as a tag.
    virtual void WriteObjectType(TulType type) = 0;
    /// One scalar of 1, 2, 4 or 8 bytes, as it lies in memory.
    virtual void WriteDataInternal(const void* data, std::size_t size) = 0;
    virtual void WriteArrayLength(std::uint32_t length) = 0;
    virtual void WriteDateTime(const DateTime& value) = 0;
    /// A whole string element: object type String and the text, of any length.
    virtual void WriteObjectString(const char* text, TulStringEncoding encoding) = 0;
    /// A NUL-terminated text that must fit `capacity` bytes with its NUL; `withCode` puts the String code
    /// in front. Raises ArgumentException if it doesn't fit.
    virtual void WriteStringInternal(const char* text, std::size_t capacity, TulStringEncoding encoding,
                                     bool withCode) = 0;
    /// The header of a structure of `fieldCount` fields; the fields follow as separate calls.
    virtual void WriteBeginStruct(std::uint32_t fieldCount) = 0;
    /// The header of an array element; its elements follow as separate calls.
    virtual void WriteArrayInformation(const TulArrayInformation& information) = 0;
    /// The first item of a response: false when the result follows, true when an error report follows.
    virtual void WriteConfirmation(bool isError) = 0;

protected:
    TulWriter() = default;
    TulWriter(const TulWriter&) = default;
    TulWriter& operator=(const TulWriter&) = default;
};
}  // namespace Kiv::System::Tul
