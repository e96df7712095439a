#include <Nm/Internal/PayloadFormatter.h>

#include <Kiv/DateTime.h>
#include <Kiv/Exceptions.h>
#include <Kiv/SecureString.h>

#include <array>
#include <cstdint>
#include <utility>

namespace Kiv::System::Nm::Internal
{
namespace
{
/// A field as a format argument: its text, formatted as any string, except that a placeholder may not
/// pad it beyond MaxWidth. The format string comes from whoever sent the notification, and "{:>2000000000}"
/// would otherwise make every process that renders it allocate two gigabytes.
struct FieldArgument
{
    static constexpr unsigned long MaxWidth = 4096;
    const String& text;
};

bool IsAlign(char c)
{
    return c == '<' || c == '>' || c == '^';
}

// The length of the UTF-8 sequence that starts with `lead`, as a fill character may be one.
std::ptrdiff_t SequenceLength(unsigned char lead)
{
    return lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
}

// Walks the specifier [begin, end) of one placeholder as far as its width:
// [[fill]align][sign]["#"]["0"][width]. Throws the format library's own error for a width over the bound,
// so that it takes the way of every other format error.
void CheckWidth(const char* begin, const char* end)
{
    const char* it = begin;
    while (it != end && *it != '}')
    {
        ++it;
    }
    end = it;
    it = begin;
    const std::ptrdiff_t fill = it != end ? SequenceLength(static_cast<unsigned char>(*it)) : 0;
    if (end - it > fill && IsAlign(it[fill]))
    {
        it += fill + 1;
    }
    else if (it != end && IsAlign(*it))
    {
        ++it;
    }
    while (it != end && (*it == '+' || *it == '-' || *it == ' ' || *it == '#' || *it == '0'))
    {
        ++it;
    }
    unsigned long width = 0;
    for (; it != end && *it >= '0' && *it <= '9'; ++it)
    {
        width = width * 10 + static_cast<unsigned long>(*it - '0');
        if (width > FieldArgument::MaxWidth)
        {
            throw fmt::format_error("width exceeds the limit of a payload field");
        }
    }
}
}  // namespace
}  // namespace Kiv::System::Nm::Internal

template <>
struct fmt::formatter<Kiv::System::Nm::Internal::FieldArgument> : fmt::formatter<fmt::string_view>
{
    auto parse(fmt::format_parse_context& context) -> decltype(context.begin())
    {
        Kiv::System::Nm::Internal::CheckWidth(context.begin(), context.end());
        return fmt::formatter<fmt::string_view>::parse(context);
    }

    auto format(const Kiv::System::Nm::Internal::FieldArgument& field, fmt::format_context& context) const
        -> decltype(context.out())
    {
        return fmt::formatter<fmt::string_view>::format(
            fmt::string_view(field.text.data(), field.text.size()), context);
    }
};

namespace Kiv::System::Nm::Internal
{
namespace
{
using Variant = TulVariant<512>;
using FormatFunction = String (*)(const std::vector<String>&);

template <class T>
T Read(const Variant& value)
{
    T result{};
    value.GetValue(result);
    return result;
}

String FormatNoField(const std::vector<String>&)
{
    return String();
}

// A lone format string has nothing to fill in, so it is not parsed at all: braces stay braces.
String FormatVerbatim(const std::vector<String>& fields)
{
    return fields.at(0);
}

template <std::size_t... Argument>
String FormatWithArguments(const std::vector<String>& fields, std::index_sequence<Argument...>)
{
    // Arguments go in as text, so a numeric specifier in the format string is a format error.
    return String::Format(fields.at(0).c_str(), FieldArgument{fields.at(Argument + 1)}...);
}

// Element 0 formatted with elements 1 to FieldCount - 1. The format library fixes the number of arguments
// at compile time, so there is one instance per count that a payload may have.
template <std::size_t FieldCount>
String FormatFields(const std::vector<String>& fields)
{
    return FormatWithArguments(fields, std::make_index_sequence<FieldCount - 1>());
}

// Indexed by the number of fields: the bridge from a count known at run time to those instances.
template <std::size_t... Count>
constexpr std::array<FormatFunction, sizeof...(Count) + 2> MakeFormatTable(std::index_sequence<Count...>)
{
    return {&FormatNoField, &FormatVerbatim, &FormatFields<Count + 2>...};
}

constexpr auto formatTable = MakeFormatTable(std::make_index_sequence<PayloadFormatter::MaxFieldCount - 2>());
}  // namespace

String PayloadFormatter::ToString() const
{
    // Tested before any field is rendered, so that the count decides whatever the fields hold.
    if (payload.size() >= MaxFieldCount)
    {
        throw NotSupportedException("Payload: cannot format payload with {} fields.", payload.size());
    }
    const std::vector<String> fields = FormatValues(payload);

    static const std::vector<FormatFunction> table(formatTable.begin(), formatTable.end());
    return table.at(fields.size())(fields);
}

std::vector<String> PayloadFormatter::FormatValues(const std::vector<TulVariant<512>>& payload)
{
    std::vector<String> fields;
    fields.reserve(payload.size());
    for (const auto& value : payload)
    {
        fields.push_back(FormatValue(value));
    }
    return fields;
}

String PayloadFormatter::FormatValue(const TulVariant<512>& value)
{
    switch (value.GetType())
    {
        case TulType::Unset:
            return String();
        case TulType::Bool:
            return String::Format("{}", Read<bool>(value));
        // A byte is a character here, not a number: 65 gives "A" and 0 a NUL inside the text.
        case TulType::Int8:
            return String::Format("{}", static_cast<char>(Read<std::int8_t>(value)));
        case TulType::UInt8:
            return String::Format("{}", static_cast<char>(Read<std::uint8_t>(value)));
        case TulType::Int16:
            return String::Format("{}", Read<std::int16_t>(value));
        case TulType::UInt16:
            return String::Format("{}", Read<std::uint16_t>(value));
        case TulType::Int32:
            return String::Format("{}", Read<std::int32_t>(value));
        case TulType::UInt32:
            return String::Format("{}", Read<std::uint32_t>(value));
        case TulType::Int64:
            return String::Format("{}", Read<std::int64_t>(value));
        case TulType::UInt64:
            return String::Format("{}", Read<std::uint64_t>(value));
        case TulType::Real32:
            return String::Format("{}", static_cast<double>(Read<float>(value)));
        case TulType::Real64:
            return String::Format("{}", Read<double>(value));
        case TulType::String:
        case TulType::String36:
        {
            // Inserted as it stands; a value from the wire may lack its NUL, so the area bounds it.
            const char* text = value.GetChars();
            return String::Format("{}", String(text, SecureStrnlen(text, Variant::MaxStringSize)));
        }
        case TulType::DateTime:
            return Read<DateTime>(value).ToIso8601String();
        default:
            // Also String26, Version, Guid and the alias codes, although the variant has a text for them.
            throw NotSupportedException("Payload: cannot format payload field with data type: {0}",
                                        value.GetType());
    }
}
}  // namespace Kiv::System::Nm::Internal
