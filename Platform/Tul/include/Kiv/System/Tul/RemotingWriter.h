#pragma once

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulWriter.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kiv::System::Tul
{
/// Writes a message into a growable byte buffer. The byte form, which every process must share:
/// little-endian; a tag or an object type is one byte, its TulType code; data are their raw bytes; a
/// DateTime is its raw 64-bit value; an array length is a uint32; a structure header is code Struct and
/// the field count as uint32; an array header is code Array and the four words of TulArrayInformation
/// as uint32; a string is its byte count as uint32 and its bytes without the NUL, with code String in
/// front where asked for; a confirmation is one byte, 0 or 1. The encoding of a string is not on the
/// wire: its bytes go as they are.
class KIV_API RemotingWriter final : public TulWriter
{
public:
    RemotingWriter() = default;
    explicit RemotingWriter(std::size_t initialCapacity);

    void WriteTag(TulType tag) override;
    void WriteObjectType(TulType type) override;
    void WriteDataInternal(const void* data, std::size_t size) override;
    void WriteArrayLength(std::uint32_t length) override;
    void WriteDateTime(const DateTime& value) override;
    void WriteObjectString(const char* text, TulStringEncoding encoding) override;
    void WriteStringInternal(const char* text, std::size_t capacity, TulStringEncoding encoding,
                             bool withCode) override;
    void WriteBeginStruct(std::uint32_t fieldCount) override;
    void WriteArrayInformation(const TulArrayInformation& information) override;
    void WriteConfirmation(bool isError) override;

    const std::uint8_t* GetData() const noexcept { return buffer.data(); }
    std::size_t GetSize() const noexcept { return buffer.size(); }
    const std::vector<std::uint8_t>& GetBuffer() const noexcept { return buffer; }

    /// Empties the message for the next one and keeps the memory.
    void Reset() noexcept { buffer.clear(); }

private:
    void Append(const void* data, std::size_t size);
    void AppendCode(TulType code);
    void AppendUInt32(std::uint32_t value);
    void AppendText(const char* text, std::size_t length);

    std::vector<std::uint8_t> buffer;
};
}  // namespace Kiv::System::Tul
