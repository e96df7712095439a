#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulReader.h>

#include <cstddef>
#include <cstdint>

namespace Kiv::System::Tul
{
/// Reads a message in the byte form of RemotingWriter from bytes that it does not own; they must stay
/// valid while it reads. A malformed message raises Kiv::CommunicationException with
/// "Malformed message at offset {0}: expected {1}, found {2}"; no read goes past the bytes given.
class KIV_API RemotingReader final : public TulReader
{
public:
    /// `data` may be null only when `size` is 0.
    RemotingReader(const void* data, std::size_t size);

    void ReadTag(TulType expected) override;
    TulType ReadObjectType() override;
    void ReadDataInternal(void* data, std::size_t size) override;
    std::uint32_t ReadArrayLength() override;
    DateTime ReadDateTime() override;
    void ReadStringInternal(char* buffer, std::size_t capacity, TulStringEncoding encoding,
                            bool withCode) override;
    void ReadBeginStruct(std::uint32_t expectedFieldCount) override;
    std::uint32_t ReadFieldCount() override;
    TulArrayInformation ReadArrayInformation() override;
    bool ReadConfirmation() override;

    std::size_t GetPosition() const noexcept { return position; }
    std::size_t GetRemaining() const noexcept { return size - position; }
    bool IsAtEnd() const noexcept { return position == size; }

private:
    [[noreturn]] void ThrowMalformed(std::size_t offset, const String& expected, const String& found) const;
    void Take(void* out, std::size_t count, const char* what);
    std::uint8_t TakeByte(const char* what);
    std::uint32_t TakeUInt32(const char* what);
    void ExpectCode(TulType expected, const char* what);
    /// Reads the code of a header unless ReadObjectType has just read it.
    void ExpectHeaderCode(TulType expected);

    const std::uint8_t* data;
    std::size_t size;
    std::size_t position = 0;
    /// Struct or Array when ReadObjectType has just read that code; None otherwise.
    TulType headerCodeRead = TulType::None;
};
}  // namespace Kiv::System::Tul
