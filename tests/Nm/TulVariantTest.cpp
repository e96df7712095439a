#include <Nm/TulString.h>
#include <Nm/TulVariant.h>

#include <Kiv/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using Kiv::DateTimeKind;
using ::testing::ThrowsMessage;
using Variant = TulVariant<512>;

static_assert(std::is_trivially_copyable_v<Variant> && std::is_trivially_copyable_v<TulString<512>>);
// The code that a constructor stores goes on the wire; plain char has none, being signed or not by target.
static_assert(TulTypeOf<char16_t> == TulType::Char && TulTypeOf<long long> == TulType::Int64);
static_assert(TulTypeOf<std::uint8_t> == TulType::UInt8 && TulTypeOf<char> == TulType::None);

namespace
{
const char* const TooLong = "Cannot copy string: argument string length 512 exceeds MaxStringSize 512";

// A value with a code that no constructor gives, as the reader builds it.
template <class T>
Variant Raw(unsigned code, const T& value)
{
    Variant variant(static_cast<TulType>(code));
    std::memcpy(variant.GetData(), &value, sizeof(value));
    return variant;
}

template <class T>
T ValueOf(const Variant& variant)
{
    T value{};
    variant.GetValue(value);
    return value;
}
}  // namespace

TEST(TulVariantTest, TextUpTo511CharactersIsStoredAndReadFromStringCodesOnly)
{
    const std::string longest(511, 'x');
    EXPECT_EQ(Variant(longest.c_str()).GetChars(), longest);
    EXPECT_EQ(Variant(Kiv::String(longest)).ToString(), longest);
    EXPECT_EQ(Variant("abcdef", 3).ToString(), "abc");
    EXPECT_EQ(Variant("").GetType(), TulType::String);
    EXPECT_THAT([] { Variant(std::string(512, 'x').c_str()); },
                ThrowsMessage<Kiv::ArgumentException>(TooLong));

    EXPECT_STREQ(Raw(26, 'a').GetChars(), "a");
    EXPECT_STREQ(Raw(36, 'b').GetChars(), "b");
    EXPECT_THAT([] { Variant().GetChars(); }, ThrowsMessage<Kiv::InvalidCastException>(
                                                  "Cannot convert to string: TulVariant is of type Unset"));
    EXPECT_THROW(Variant(7).GetChars(), Kiv::InvalidCastException);
}

TEST(TulVariantTest, TypedReadNeedsTheExactCodeSaveForAliases)
{
    EXPECT_EQ(ValueOf<double>(Variant(-2.5)), -2.5);
    EXPECT_TRUE(ValueOf<bool>(Raw(2, std::uint8_t{2})));
    EXPECT_EQ(ValueOf<DateTime>(Variant(DateTime(77, DateTimeKind::Local))),
              DateTime(77, DateTimeKind::Local));
    EXPECT_EQ(ValueOf<std::int32_t>(Raw(41, std::int32_t{-41})), -41);
    for (unsigned code : {42u, 44u, 46u, 48u})
    {
        EXPECT_EQ(ValueOf<std::int64_t>(Raw(code, std::int64_t{-1099511627776})), -1099511627776) << code;
    }

    EXPECT_THAT([] { ValueOf<std::uint32_t>(Variant(std::uint16_t{1})); },
                ThrowsMessage<Kiv::InvalidCastException>("Cannot copy value to argument: TulVariant contains "
                                                         "data type UInt16 but arg is of type UInt32"));
    EXPECT_THAT(
        [] { ValueOf<std::int64_t>(Raw(43, std::int64_t{1})); },
        ThrowsMessage<Kiv::InvalidCastException>(
            "Cannot copy value to argument: TulVariant contains data type 43 but arg is of type Int64"));
    EXPECT_THROW(ValueOf<std::int64_t>(Raw(41, std::int64_t{1})), Kiv::InvalidCastException);
    EXPECT_THROW(ValueOf<std::int32_t>(Raw(42, std::int32_t{1})), Kiv::InvalidCastException);
}

TEST(TulVariantTest, ToStringOfEveryCodeWithText)
{
    Kiv::System::Tul::TulGuid guid;
    for (std::uint8_t i = 0; i < 16; ++i)
    {
        guid.bytes[i] = static_cast<std::uint8_t>(i * 17);
    }
    // 2026-11-21T08:15:30 UTC with 1234567 ticks.
    const DateTime instant(DateTime::UnixEpochTicks + 1795248930ull * DateTime::TicksPerSecond + 1234567,
                           DateTimeKind::Utc);
    const std::pair<Variant, std::string> rows[] = {
        {Variant(TulType::None), ""},
        {Variant(), ""},
        {Variant(true), "true"},
        {Variant(u'\xffff'), "65535"},
        {Variant(std::int8_t{65}), "65"},
        {Variant(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
        {Variant(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615"},
        {Raw(41, std::int32_t{-7}), "-7"},
        {Variant(1.5f), "1.500000"},
        {Variant("text"), "text"},
        {Variant(instant), "2026-11-21T08:15:30.1234567Z"},
        {Variant(Kiv::System::Tul::TulVersion{1, 2, 3, 65535}), "1.2.3.65535"},
        {Variant(guid), "00112233-4455-6677-8899-aabbccddeeff"},
    };
    for (const auto& [value, text] : rows)
    {
        EXPECT_EQ(value.ToString(), text) << static_cast<int>(value.GetType());
    }
    EXPECT_EQ(Variant(std::numeric_limits<double>::max()).ToString().size(), 316u);
    EXPECT_THAT(
        [] { Variant(TulType::Struct).ToString(); },
        ThrowsMessage<Kiv::NotSupportedException>("TulVariant::ToString() not supported for type 'Struct'"));
    EXPECT_THAT([] { Raw(43, 0).ToString(); }, ThrowsMessage<Kiv::NotSupportedException>(
                                                   "TulVariant::ToString() not supported for type '43'"));
    EXPECT_THROW(Variant(TulType::Array).ToString(), Kiv::NotSupportedException);
    EXPECT_THAT(
        [] { Variant(TulType::Array).GetFieldCount(); },
        ThrowsMessage<Kiv::InvalidOperationException>("TulVariant doesn't contain struct information"));
    EXPECT_THAT(
        [] { Variant(TulType::Struct).GetArrayInformation(); },
        ThrowsMessage<Kiv::InvalidOperationException>("TulVariant doesn't contain array information"));
}

TEST(TulStringTest, HoldsAtMost511CharactersAndNeverReadsPastItsBuffer)
{
    const std::string longest(511, 'z');
    EXPECT_EQ(TulString<512>(longest.c_str()).ToString(), longest);
    EXPECT_NE(TulString<512>(Kiv::String("name")), TulString<512>("names"));
    EXPECT_EQ(Kiv::String::Format("[{}]", TulString<512>("abcdef", 2)), "[ab]");
    EXPECT_THAT([] { TulString<512>(Kiv::String(512, 'z')); },
                ThrowsMessage<Kiv::ArgumentException>(TooLong));

    // A reader that filled the whole buffer without a terminator.
    TulString<512> filled;
    std::memset(filled.GetBuffer(), 'q', 512);
    EXPECT_EQ(filled.GetLength(), 512u);
}
