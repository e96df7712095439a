#pragma once

#include <Nm/TulString.h>

#include <Kiv/BasicString.h>
#include <Kiv/DateTime.h>
#include <Kiv/System/Tul/TulArrayInformation.h>
#include <Kiv/System/Tul/TulGuid.h>
#include <Kiv/System/Tul/TulType.h>
#include <Kiv/System/Tul/TulVersion.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Kiv::System::Tul
{
class TulReader;
class TulWriter;
}  // namespace Kiv::System::Tul

namespace Kiv::System::Nm
{
using Kiv::System::Tul::TulType;

namespace Detail
{
template <class T>
constexpr TulType TulTypeCodeOf() noexcept
{
    if constexpr (std::is_same_v<T, bool>)
    {
        return TulType::Bool;
    }
    else if constexpr (std::is_same_v<T, char16_t>)
    {
        return TulType::Char;
    }
    // Plain char is signed on some targets and unsigned on others, so it has no code of its own.
    else if constexpr (std::is_integral_v<T> && !std::is_same_v<T, char> && !std::is_same_v<T, wchar_t> &&
                       !std::is_same_v<T, char32_t>)
    {
        constexpr bool isSigned = std::is_signed_v<T>;
        if constexpr (sizeof(T) == 1)
        {
            return isSigned ? TulType::Int8 : TulType::UInt8;
        }
        else if constexpr (sizeof(T) == 2)
        {
            return isSigned ? TulType::Int16 : TulType::UInt16;
        }
        else if constexpr (sizeof(T) == 4)
        {
            return isSigned ? TulType::Int32 : TulType::UInt32;
        }
        else if constexpr (sizeof(T) == 8)
        {
            return isSigned ? TulType::Int64 : TulType::UInt64;
        }
        else
        {
            return TulType::None;
        }
    }
    else if constexpr (std::is_same_v<T, float>)
    {
        return TulType::Real32;
    }
    else if constexpr (std::is_same_v<T, double>)
    {
        return TulType::Real64;
    }
    else if constexpr (std::is_same_v<T, DateTime>)
    {
        return TulType::DateTime;
    }
    else if constexpr (std::is_same_v<T, Tul::TulVersion>)
    {
        return TulType::Version;
    }
    else if constexpr (std::is_same_v<T, Tul::TulGuid>)
    {
        return TulType::Guid;
    }
    else
    {
        return TulType::None;
    }
}
}  // namespace Detail

/// The code that a value of type T gets in a variant; None for a type that a variant can't hold.
template <class T>
inline constexpr TulType TulTypeOf = Detail::TulTypeCodeOf<std::remove_cv_t<T>>();

/// A self-describing value: a value area of Size bytes and a one-byte type code. It owns nothing and is
/// copied by copying its bytes, so vectors of it never allocate per element.
///
/// Every value starts at the first byte of the area. A string is a NUL-terminated text of at most
/// Size - 1 characters. Struct and Array hold their field count or TulArrayInformation in the first 16
/// bytes, followed by a TulReader and a TulWriter pointer slot.
template <std::size_t Size>
class TulVariant
{
public:
    static constexpr std::size_t MaxStringSize = Size;

    /// A field that was declared and never set: code Unset.
    TulVariant() noexcept = default;

    /// A value of the given code with a zeroed area, for a reader that fills the area in place.
    explicit TulVariant(TulType type) noexcept : type(type) {}

    /// Any numeric type, bool, char16_t, DateTime, TulVersion or TulGuid, with the code of its type.
    template <class T, std::enable_if_t<TulTypeOf<T> != TulType::None, int> = 0>
    TulVariant(const T& value) noexcept;

    /// Text with code String; refused at MaxStringSize characters or more. Null gives the empty text.
    TulVariant(const char* text);
    TulVariant(const char* text, std::size_t length);
    TulVariant(const String& text);

    TulType GetType() const noexcept { return type; }

    /// Copies the value if the code is T's own; Int32 also accepts Alias32 and Int64 the Alias64 codes.
    /// There is no numeric conversion. Throws InvalidCastException otherwise.
    template <class T>
    void GetValue(T& value) const;

    /// The text of a String, String26 or String36 value; throws InvalidCastException otherwise.
    const char* GetChars() const;

    /// The text of any value that has one; empty for None, Void and Unset.
    String ToString() const;

    /// Field count of a Struct; InvalidOperationException on any other code.
    std::uint32_t GetFieldCount() const;
    void SetFieldCount(std::uint32_t fieldCount);

    /// Header of an Array; InvalidOperationException on any other code.
    Tul::TulArrayInformation GetArrayInformation() const;
    void SetArrayInformation(const Tul::TulArrayInformation& information);

    /// The reader and the writer that a Struct or Array was last read with or written through. They are
    /// valid only during that operation. The writer is stored while a constant record is serialised.
    Tul::TulReader* GetReader() const;
    void SetReader(Tul::TulReader* reader);
    Tul::TulWriter* GetWriter() const;
    void SetWriter(Tul::TulWriter* writer) const;

    /// The raw value area of Size bytes, for the serialiser.
    void* GetData() noexcept { return data; }
    const void* GetData() const noexcept { return data; }

private:
    static constexpr std::size_t HeaderSize = 16;
    static constexpr std::size_t ReaderOffset = HeaderSize;
    static constexpr std::size_t WriterOffset = HeaderSize + sizeof(void*);
    static_assert(Size >= WriterOffset + sizeof(void*), "the area must hold a header and two pointers");

    void CopyText(const char* text, std::size_t length);
    void EnsureStructOrArray() const;
    template <class T>
    T Read() const noexcept;
    template <class T>
    void Write(const T& value) noexcept;

    // Mutable because serialising a constant record stores the writer in a Struct or Array value.
    alignas(8) mutable unsigned char data[Size] = {};
    TulType type = TulType::Unset;
};

// A 64-bit value stands aligned at the start of the area on a 32-bit machine too, and the payload's fields
// have the same size on every machine of a system.
static_assert(sizeof(TulVariant<512>) == 520 && alignof(TulVariant<512>) == 8,
              "a value area of 512 bytes, 8-aligned, then the one-byte code");
}  // namespace Kiv::System::Nm

#include <Nm/TulVariant.inl>
