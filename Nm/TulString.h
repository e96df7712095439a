#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Exceptions.h>
#include <Kiv/SecureString.h>

#include <fmt/ostream.h>

#include <cstddef>
#include <cstring>
#include <ostream>

namespace Kiv::System::Nm
{
namespace Detail
{
/// Copies `length` characters of `source` into a buffer of `Size` bytes and terminates them. A text that
/// leaves no room for the NUL is refused; the message names the buffer's capacity, not the longest text.
template <std::size_t Size>
void CopyString(char* destination, const char* source, std::size_t length)
{
    if (length >= Size)
    {
        throw ArgumentException("Cannot copy string: argument string length {} exceeds MaxStringSize {}",
                                length, Size);
    }
    SecureStrncpy(destination, Size, source, length);
    destination[length] = '\0';
}
}  // namespace Detail

/// The fixed string of the service interfaces: a NUL-terminated text of at most Size - 1 characters in a
/// buffer of Size bytes, so that a call needs no heap for its strings.
template <std::size_t Size>
class TulString
{
public:
    static constexpr std::size_t MaxStringSize = Size;

    TulString() noexcept = default;
    /// Copies `text` up to its NUL; null gives the empty text.
    explicit TulString(const char* text) : TulString(text, text != nullptr ? std::strlen(text) : 0) {}
    explicit TulString(const char* text, std::size_t length)
    {
        Detail::CopyString<Size>(chars, text, length);
    }
    explicit TulString(const String& text) : TulString(text.c_str(), text.size()) {}

    const char* GetChars() const noexcept { return chars; }
    /// The whole buffer of MaxStringSize bytes, for a reader that fills it in place.
    char* GetBuffer() noexcept { return chars; }
    /// Stays within the buffer even if a reader left it unterminated.
    std::size_t GetLength() const noexcept { return SecureStrnlen(chars, Size); }
    String ToString() const { return String(chars, GetLength()); }

    bool operator==(const TulString& other) const noexcept
    {
        return std::strncmp(chars, other.chars, Size) == 0;
    }
    bool operator!=(const TulString& other) const noexcept { return !(*this == other); }

private:
    char chars[Size] = {};
};

template <std::size_t Size>
std::ostream& operator<<(std::ostream& out, const TulString<Size>& text)
{
    return out.write(text.GetChars(), static_cast<std::streamsize>(text.GetLength()));
}
}  // namespace Kiv::System::Nm

template <std::size_t Size>
struct fmt::formatter<Kiv::System::Nm::TulString<Size>> : fmt::ostream_formatter
{
};
