#pragma once

#include <Nm/TypeName.h>

#include <Kiv/BasicString.h>
#include <Kiv/Exception.h>

#include <fmt/format.h>

#include <cstring>
#include <initializer_list>
#include <istream>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

namespace Kiv
{
/// The text table of an enumeration: code to text, ordered by code. The texts are literals and are not
/// owned.
template <class T>
class EnumDictionaryBase
{
public:
    using MapType = std::map<T, const char*>;

    const MapType& GetMap() const noexcept { return map; }
    const String& GetInvalidValueText() const noexcept { return invalidValueText; }

    /// Writes the text of `value`. A code without text is written as its decimal number (or as
    /// invalidValueText where that is set) and marked by failbit alone; a null text sets badbit.
    void Write(std::ostream& out, T value) const
    {
        const auto it = map.find(value);
        if (it != map.end())
        {
            if (it->second == nullptr)
            {
                out.setstate(std::ios_base::badbit);
                return;
            }
            out << it->second;
            return;
        }
        if (invalidValueText.empty())
        {
            // "{:d}" makes the byte a number here; the failure messages deliberately don't.
            out << fmt::format("{:d}", static_cast<std::underlying_type_t<T>>(value));
        }
        else
        {
            out << invalidValueText;
        }
        out.setstate(std::ios_base::failbit);
    }

    /// Reads one whitespace-delimited word; failbit and the value untouched if no text matches.
    void Read(std::istream& in, T& value) const
    {
        std::string word;
        if (!(in >> word))
        {
            return;
        }
        if (!TryGetValue(word.c_str(), value))
        {
            in.setstate(std::ios_base::failbit);
        }
    }

    /// Exact, case-sensitive match; the lowest code wins and `value` is untouched on a miss.
    bool TryGetValue(const char* text, T& value) const noexcept
    {
        if (text == nullptr)
        {
            return false;
        }
        for (const auto& entry : map)
        {
            if (entry.second != nullptr && std::strcmp(entry.second, text) == 0)
            {
                value = entry.first;
                return true;
            }
        }
        return false;
    }

    /// The stored text of `value`, or throws Exception for a code outside the table.
    const char* GetString(T value) const
    {
        const auto it = map.find(value);
        if (it == map.end())
        {
            // The code goes in as a char, so the message carries the raw byte rather than digits.
            throw Exception("Could not find enum string of enum '{}' for value '{}'.", TypeName<T>(),
                            static_cast<char>(static_cast<std::underlying_type_t<T>>(value)));
        }
        return it->second;
    }

protected:
    /// Of two pairs with the same code the first is kept, as std::map's construction does.
    EnumDictionaryBase(std::initializer_list<std::pair<const T, const char*>> entries,
                       const char* invalidValueText)
        : map(entries), invalidValueText(invalidValueText != nullptr ? invalidValueText : "")
    {
    }

    ~EnumDictionaryBase() = default;
    EnumDictionaryBase(const EnumDictionaryBase&) = delete;
    EnumDictionaryBase& operator=(const EnumDictionaryBase&) = delete;

private:
    MapType map;
    String invalidValueText;
};

/// The one dictionary of an enumeration. Each enumeration defines GetInstance() in its own source file
/// with a function-local static, so there is exactly one object per process, made at first use.
template <class T>
class EnumDictionary : public EnumDictionaryBase<T>
{
public:
    static const EnumDictionary& GetInstance();

    static std::ostream& WriteEnumString(std::ostream& out, T value)
    {
        GetInstance().Write(out, value);
        return out;
    }

    static std::istream& ReadEnumString(std::istream& in, T& value)
    {
        GetInstance().Read(in, value);
        return in;
    }

private:
    using EnumDictionaryBase<T>::EnumDictionaryBase;
};

namespace Detail
{
/// Formats an enumeration through its stream output. The stream state is ignored, so an unknown code
/// shows as its number instead of failing the whole format call.
template <class T>
struct EnumStreamFormatter : fmt::formatter<fmt::string_view>
{
    auto format(T value, fmt::format_context& ctx) const
    {
        std::ostringstream out;
        out << value;
        const std::string text = out.str();
        return fmt::formatter<fmt::string_view>::format(fmt::string_view(text), ctx);
    }
};
}  // namespace Detail

template <class T>
bool TryGetEnumValue(const char* text, T& value)
{
    return EnumDictionary<T>::GetInstance().TryGetValue(text, value);
}

template <class T>
const char* GetEnumString(T value)
{
    return EnumDictionary<T>::GetInstance().GetString(value);
}
}  // namespace Kiv
