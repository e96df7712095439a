#include "Bridge/NotificationJson.h"

#include <Nm/EnumDictionary.h>

#include <Kiv/System/Tul/TulArrayInformation.h>
#include <Kiv/System/Tul/TulType.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace KivBridge
{
namespace
{
using Kiv::System::Nm::Severity;
using Kiv::System::Tul::TulArrayInformation;
using Kiv::System::Tul::TulType;

/// The types that cross between processes, and so can reach a bridge, with their names in the document.
const std::vector<std::pair<TulType, const char*>>& Types()
{
    static const std::vector<std::pair<TulType, const char*>> types{
        {TulType::Void, "Void"},         {TulType::Bool, "Bool"},        {TulType::Int8, "Int8"},
        {TulType::UInt8, "UInt8"},       {TulType::Int16, "Int16"},      {TulType::UInt16, "UInt16"},
        {TulType::Int32, "Int32"},       {TulType::UInt32, "UInt32"},    {TulType::Int64, "Int64"},
        {TulType::UInt64, "UInt64"},     {TulType::Real32, "Real32"},    {TulType::Real64, "Real64"},
        {TulType::Struct, "Struct"},     {TulType::String, "String"},    {TulType::Array, "Array"},
        {TulType::DateTime, "DateTime"}, {TulType::String36, "String36"}};
    return types;
}

template <class T>
T Typed(const Variant& field)
{
    T value{};
    field.GetValue(value);
    return value;
}

/// JSON has no NaN or infinities; they go as the strings that JavaScript prints for them.
Json Real(double value)
{
    if (std::isnan(value))
    {
        return "NaN";
    }
    if (std::isinf(value))
    {
        return value > 0 ? "Infinity" : "-Infinity";
    }
    return value;
}

double RealFrom(const Json& value)
{
    if (value.is_number())
    {
        return value.get<double>();
    }
    if (value == "NaN")
    {
        return std::numeric_limits<double>::quiet_NaN();
    }
    if (value == "Infinity" || value == "-Infinity")
    {
        return value == "Infinity" ? std::numeric_limits<double>::infinity()
                                   : -std::numeric_limits<double>::infinity();
    }
    throw FormatError("a real value is a number, \"NaN\", \"Infinity\" or \"-Infinity\", not " +
                      value.dump());
}

/// An integer of type T from a JSON number that holds one exactly.
template <class T>
T Integer(const Json& value)
{
    if (value.is_number_unsigned())
    {
        const auto v = value.get<std::uint64_t>();
        if (v <= static_cast<std::uint64_t>(std::numeric_limits<T>::max()))
        {
            return static_cast<T>(v);
        }
    }
    else if (value.is_number_integer())
    {
        const auto v = value.get<std::int64_t>();
        if constexpr (std::is_signed_v<T>)
        {
            if (v >= std::numeric_limits<T>::min() && v <= std::numeric_limits<T>::max())
            {
                return static_cast<T>(v);
            }
        }
        else if (v >= 0 && static_cast<std::uint64_t>(v) <= std::numeric_limits<T>::max())
        {
            return static_cast<T>(v);
        }
    }
    throw FormatError("value " + value.dump() + " is not an integer of the field's type");
}

Variant Text(TulType type, const Json& value)
{
    if (!value.is_string())
    {
        throw FormatError("a text field needs a string value");
    }
    const std::string& text = value.get_ref<const std::string&>();
    if (text.size() >= 512)
    {
        throw FormatError("a text field holds at most 511 characters");
    }
    Variant field(text.c_str(), text.size());
    if (type == TulType::String36)
    {
        // Same area, same text: only the code differs.
        Variant copy(TulType::String36);
        std::memcpy(copy.GetData(), field.GetData(), text.size() + 1);
        return copy;
    }
    return field;
}

std::uint32_t Word(const Json& object, const char* key)
{
    if (!object.is_object() || !object.contains(key))
    {
        throw FormatError(std::string("missing \"") + key + "\"");
    }
    return Integer<std::uint32_t>(object.at(key));
}

const Json& Member(const Json& document, const char* key, Json::value_t type)
{
    const auto it = document.find(key);
    if (it == document.end())
    {
        throw FormatError(std::string("missing \"") + key + "\"");
    }
    if (it->type() != type && !(type == Json::value_t::number_unsigned && it->is_number_unsigned()))
    {
        throw FormatError(std::string("\"") + key + "\" has the wrong type");
    }
    return *it;
}

int Digits(const std::string& text, std::size_t at, std::size_t count)
{
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i)
    {
        if (i >= text.size() || text[i] < '0' || text[i] > '9')
        {
            throw FormatError("not an ISO 8601 time: " + text);
        }
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

// Days from 1970-01-01 to a proleptic Gregorian date (H. Hinnant's days_from_civil), the inverse of what
// DateTime::ToIso8601String uses.
long long DaysFromCivil(long long y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long long>(doe) - 719468;
}
}  // namespace

Kiv::DateTime ParseIso8601(const std::string& text)
{
    // YYYY-MM-DDTHH:MM:SS[.fffffff](Z|±HH:MM)
    if (text.size() < 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':')
    {
        throw FormatError("not an ISO 8601 time: " + text);
    }
    const int year = Digits(text, 0, 4), month = Digits(text, 5, 2), day = Digits(text, 8, 2);
    const int hour = Digits(text, 11, 2), minute = Digits(text, 14, 2), second = Digits(text, 17, 2);
    if (year < 1 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
    {
        throw FormatError("not an ISO 8601 time: " + text);
    }
    std::size_t at = 19;
    std::uint64_t fraction = 0;
    if (text[at] == '.')
    {
        std::size_t digits = 0;
        for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, ++digits)
        {
            fraction = digits < 7 ? fraction * 10 + static_cast<std::uint64_t>(text[at] - '0') : fraction;
        }
        for (; digits < 7; ++digits)
        {
            fraction *= 10;
        }
    }
    const std::string zone = text.substr(at);
    Kiv::DateTimeKind kind = Kiv::DateTimeKind::Utc;
    if (zone != "Z")
    {
        if (zone.size() != 6 || (zone[0] != '+' && zone[0] != '-') || zone[3] != ':')
        {
            throw FormatError("an ISO 8601 time needs Z or an offset: " + text);
        }
        Digits(zone, 1, 2);
        Digits(zone, 4, 2);
        kind = Kiv::DateTimeKind::Local;
    }
    const long long days = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
    const long long seconds = days * 86400 + hour * 3600 + minute * 60 + second;
    const auto ticks =
        static_cast<std::uint64_t>(static_cast<long long>(Kiv::DateTime::UnixEpochTicks) +
                                   seconds * static_cast<long long>(Kiv::DateTime::TicksPerSecond)) +
        fraction;
    return Kiv::DateTime(ticks, kind);
}

Json FieldToJson(const Variant& field)
{
    const TulType type = field.GetType();
    const auto known =
        std::find_if(Types().begin(), Types().end(), [&](const auto& t) { return t.first == type; });
    if (known == Types().end())
    {
        throw FormatError("a payload field of type code " + std::to_string(static_cast<int>(type)) +
                          " has no JSON form");
    }
    Json value;
    switch (type)
    {
        case TulType::Void:
            break;
        case TulType::Bool:
            value = Typed<bool>(field);
            break;
        case TulType::Int8:
            value = Typed<std::int8_t>(field);
            break;
        case TulType::UInt8:
            value = Typed<std::uint8_t>(field);
            break;
        case TulType::Int16:
            value = Typed<std::int16_t>(field);
            break;
        case TulType::UInt16:
            value = Typed<std::uint16_t>(field);
            break;
        case TulType::Int32:
            value = Typed<std::int32_t>(field);
            break;
        case TulType::UInt32:
            value = Typed<std::uint32_t>(field);
            break;
        case TulType::Int64:
            value = Typed<std::int64_t>(field);
            break;
        case TulType::UInt64:
            value = Typed<std::uint64_t>(field);
            break;
        case TulType::Real32:
            value = Real(Typed<float>(field));
            break;
        case TulType::Real64:
            value = Real(Typed<double>(field));
            break;
        case TulType::Struct:
            value = Json{{"fieldCount", field.GetFieldCount()}};
            break;
        case TulType::Array:
        {
            const TulArrayInformation info = field.GetArrayInformation();
            value = Json{{"elementType", info.elementType},
                         {"rank", info.rank},
                         {"length", info.length},
                         {"lowerBound", info.lowerBound}};
            break;
        }
        case TulType::DateTime:
            value = Typed<Kiv::DateTime>(field).ToIso8601String().c_str();
            break;
        default:  // the text types
            value = field.GetChars();
    }
    return Json{{"type", known->second}, {"value", value}};
}

Variant FieldFromJson(const Json& field)
{
    if (!field.is_object() || !field.contains("type") || !field["type"].is_string() ||
        !field.contains("value"))
    {
        throw FormatError("a field is an object with \"type\" and \"value\"");
    }
    const std::string& name = field["type"].get_ref<const std::string&>();
    const auto known =
        std::find_if(Types().begin(), Types().end(), [&](const auto& t) { return name == t.second; });
    if (known == Types().end())
    {
        throw FormatError("unknown field type \"" + name + "\"");
    }
    const Json& value = field["value"];
    switch (known->first)
    {
        case TulType::Void:
            return Variant(TulType::Void);
        case TulType::Bool:
            if (!value.is_boolean())
            {
                throw FormatError("a Bool field needs true or false");
            }
            return Variant(value.get<bool>());
        case TulType::Int8:
            return Variant(Integer<std::int8_t>(value));
        case TulType::UInt8:
            return Variant(Integer<std::uint8_t>(value));
        case TulType::Int16:
            return Variant(Integer<std::int16_t>(value));
        case TulType::UInt16:
            return Variant(Integer<std::uint16_t>(value));
        case TulType::Int32:
            return Variant(Integer<std::int32_t>(value));
        case TulType::UInt32:
            return Variant(Integer<std::uint32_t>(value));
        case TulType::Int64:
            return Variant(Integer<std::int64_t>(value));
        case TulType::UInt64:
            return Variant(Integer<std::uint64_t>(value));
        case TulType::Real32:
            return Variant(static_cast<float>(RealFrom(value)));
        case TulType::Real64:
            return Variant(RealFrom(value));
        case TulType::Struct:
        {
            Variant v(TulType::Struct);
            v.SetFieldCount(Word(value, "fieldCount"));
            return v;
        }
        case TulType::Array:
        {
            Variant v(TulType::Array);
            v.SetArrayInformation(TulArrayInformation{Word(value, "elementType"), Word(value, "rank"),
                                                      Word(value, "length"), Word(value, "lowerBound")});
            return v;
        }
        case TulType::DateTime:
            if (!value.is_string())
            {
                throw FormatError("a DateTime field needs an ISO 8601 string");
            }
            return Variant(ParseIso8601(value.get<std::string>()));
        default:
            return Text(known->first, value);
    }
}

Json ToJson(const NotificationHeader& header, const std::vector<Variant>& fields)
{
    Json list = Json::array();
    for (const auto& field : fields)
    {
        list.push_back(FieldToJson(field));
    }
    return Json{{"origin", header.origin},
                {"bridge", header.bridge},
                {"name", header.name},
                {"id", header.id},
                {"timestamp", header.timestamp.ToIso8601String().c_str()},
                {"severity", Kiv::GetEnumString(header.severity)},
                {"sender", header.sender},
                {"payloadType", header.payloadType},
                {"fields", list},
                {"text", header.text}};
}

void FromJson(const Json& document, NotificationHeader& header, std::vector<Variant>& fields)
{
    if (!document.is_object())
    {
        throw FormatError("the document is not a JSON object");
    }
    const auto text = [&](const char* key)
    { return Member(document, key, Json::value_t::string).get<std::string>(); };
    header.origin = text("origin");
    header.bridge = text("bridge");
    header.name = text("name");
    header.id = Member(document, "id", Json::value_t::number_unsigned).get<std::uint64_t>();
    header.timestamp = ParseIso8601(text("timestamp"));
    const std::string severity = text("severity");
    if (!Kiv::TryGetEnumValue(severity.c_str(), header.severity))
    {
        throw FormatError("unknown severity \"" + severity + "\"");
    }
    header.sender = text("sender");
    header.payloadType = text("payloadType");
    header.text =
        document.contains("text") && document["text"].is_string() ? document["text"].get<std::string>() : "";
    const Json& list = Member(document, "fields", Json::value_t::array);
    fields.clear();
    fields.reserve(list.size());
    for (const auto& field : list)
    {
        fields.push_back(FieldFromJson(field));
    }
}
}  // namespace KivBridge
