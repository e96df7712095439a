#pragma once

// Template bodies of TulVariant; included by TulVariant.h only.

#include <Kiv/Exceptions.h>
#include <Kiv/SecureString.h>

#include <fmt/format.h>

#include <cstdio>
#include <cstring>
#include <sstream>

namespace Kiv::System::Nm
{
template <std::size_t Size>
template <class T, std::enable_if_t<TulTypeOf<T> != TulType::None, int>>
TulVariant<Size>::TulVariant(const T& value) noexcept : type(TulTypeOf<T>)
{
    static_assert(std::is_trivially_copyable_v<T> && sizeof(T) <= Size, "stored by copying its bytes");
    Write(value);
}

template <std::size_t Size>
TulVariant<Size>::TulVariant(const char* text) : TulVariant(text, text != nullptr ? std::strlen(text) : 0)
{
}

template <std::size_t Size>
TulVariant<Size>::TulVariant(const char* text, std::size_t length)
{
    CopyText(text, length);
}

template <std::size_t Size>
TulVariant<Size>::TulVariant(const String& text)
{
    CopyText(text.c_str(), text.size());
}

template <std::size_t Size>
void TulVariant<Size>::CopyText(const char* text, std::size_t length)
{
    Detail::CopyString<Size>(reinterpret_cast<char*>(data), text, length);
    type = TulType::String;
}

template <std::size_t Size>
template <class T>
T TulVariant<Size>::Read() const noexcept
{
    T value;
    std::memcpy(&value, data, sizeof(T));
    return value;
}

template <std::size_t Size>
template <class T>
void TulVariant<Size>::Write(const T& value) noexcept
{
    std::memcpy(data, &value, sizeof(T));
}

template <std::size_t Size>
template <class T>
void TulVariant<Size>::GetValue(T& value) const
{
    constexpr TulType target = TulTypeOf<T>;
    static_assert(target != TulType::None, "a variant holds no value of this type");

    const auto code = static_cast<std::uint8_t>(type);
    const bool isAlias = code >= 41 && code <= 48;
    const bool matches = (type == target && !isAlias) || (target == TulType::Int32 && code == 41) ||
                         (target == TulType::Int64 && (code == 42 || code == 44 || code == 46 || code == 48));
    if (!matches)
    {
        throw InvalidCastException(
            "Cannot copy value to argument: TulVariant contains data type {0} but arg is of type {1}", type,
            target);
    }
    if constexpr (std::is_same_v<T, bool>)
    {
        // A byte from the wire may be any value; only 0 is false.
        value = data[0] != 0;
    }
    else
    {
        value = Read<T>();
    }
}

template <std::size_t Size>
const char* TulVariant<Size>::GetChars() const
{
    if (type != TulType::String && type != TulType::String26 && type != TulType::String36)
    {
        throw InvalidCastException("Cannot convert to string: TulVariant is of type {0}", type);
    }
    return reinterpret_cast<const char*>(data);
}

template <std::size_t Size>
String TulVariant<Size>::ToString() const
{
    switch (static_cast<std::uint8_t>(type))
    {
        case 0:    // None
        case 1:    // Void
        case 255:  // Unset
            return String();
        case 2:  // Bool
        {
            std::ostringstream out;
            out << std::boolalpha << (data[0] != 0);
            if (out.fail())
            {
                throw InvalidOperationException("Value of TulVariant is not of type bool.");
            }
            return String(out.str());
        }
        case 3:  // Char
        case 7:  // UInt16
            return String(fmt::format_int(Read<std::uint16_t>()).str());
        case 5:  // UInt8
            return String(fmt::format_int(static_cast<unsigned>(Read<std::uint8_t>())).str());
        case 9:  // UInt32
            return String(fmt::format_int(Read<std::uint32_t>()).str());
        case 11:  // UInt64
            return String(fmt::format_int(static_cast<unsigned long long>(Read<std::uint64_t>())).str());
        case 4:  // Int8
            return String(fmt::format_int(static_cast<int>(Read<std::int8_t>())).str());
        case 6:  // Int16
            return String(fmt::format_int(Read<std::int16_t>()).str());
        case 8:   // Int32
        case 41:  // Alias32
            return String(fmt::format_int(Read<std::int32_t>()).str());
        case 10:  // Int64
        case 42:  // the Alias64 codes
        case 44:
        case 46:
        case 48:
            return String(fmt::format_int(static_cast<long long>(Read<std::int64_t>())).str());
        case 12:  // Real32
        case 13:  // Real64
        {
            const double value =
                type == TulType::Real32 ? static_cast<double>(Read<float>()) : Read<double>();
            // "%f" of the largest double has 316 characters.
            char text[400];
            const int length = std::snprintf(text, sizeof(text), "%f", value);
            return length < 0 ? String() : String(text);
        }
        case 19:  // String
        case 26:  // String26
        case 36:  // String36
            return String(reinterpret_cast<const char*>(data),
                          SecureStrnlen(reinterpret_cast<const char*>(data), Size));
        case 23:  // DateTime
            return Read<DateTime>().ToIso8601String();
        case 24:  // Version
            return Read<Tul::TulVersion>().ToString();
        case 25:  // Guid
            return Read<Tul::TulGuid>().ToString();
        default:
            throw NotSupportedException("TulVariant::ToString() not supported for type '{0}'", type);
    }
}

template <std::size_t Size>
std::uint32_t TulVariant<Size>::GetFieldCount() const
{
    if (type != TulType::Struct)
    {
        throw InvalidOperationException("TulVariant doesn't contain struct information");
    }
    return Read<std::uint32_t>();
}

template <std::size_t Size>
void TulVariant<Size>::SetFieldCount(std::uint32_t fieldCount)
{
    if (type != TulType::Struct)
    {
        throw InvalidOperationException("TulVariant doesn't contain struct information");
    }
    Write(fieldCount);
}

template <std::size_t Size>
Tul::TulArrayInformation TulVariant<Size>::GetArrayInformation() const
{
    if (type != TulType::Array)
    {
        throw InvalidOperationException("TulVariant doesn't contain array information");
    }
    return Read<Tul::TulArrayInformation>();
}

template <std::size_t Size>
void TulVariant<Size>::SetArrayInformation(const Tul::TulArrayInformation& information)
{
    if (type != TulType::Array)
    {
        throw InvalidOperationException("TulVariant doesn't contain array information");
    }
    Write(information);
}

template <std::size_t Size>
void TulVariant<Size>::EnsureStructOrArray() const
{
    // Anywhere else the slots would overwrite the value itself.
    if (type != TulType::Struct && type != TulType::Array)
    {
        throw InvalidOperationException("TulVariant doesn't contain struct or array information");
    }
}

template <std::size_t Size>
Tul::TulReader* TulVariant<Size>::GetReader() const
{
    EnsureStructOrArray();
    Tul::TulReader* reader = nullptr;
    std::memcpy(&reader, data + ReaderOffset, sizeof(reader));
    return reader;
}

template <std::size_t Size>
void TulVariant<Size>::SetReader(Tul::TulReader* reader)
{
    EnsureStructOrArray();
    std::memcpy(data + ReaderOffset, &reader, sizeof(reader));
}

template <std::size_t Size>
Tul::TulWriter* TulVariant<Size>::GetWriter() const
{
    EnsureStructOrArray();
    Tul::TulWriter* writer = nullptr;
    std::memcpy(&writer, data + WriterOffset, sizeof(writer));
    return writer;
}

template <std::size_t Size>
void TulVariant<Size>::SetWriter(Tul::TulWriter* writer) const
{
    EnsureStructOrArray();
    std::memcpy(data + WriterOffset, &writer, sizeof(writer));
}
}  // namespace Kiv::System::Nm
