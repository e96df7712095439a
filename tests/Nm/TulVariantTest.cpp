#include <Nm/TulString.h>
#include <Nm/TulVariant.h>

#include <Kiv/Exceptions.h>

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using Kiv::DateTimeKind;
using Kiv::System::Tul::TulArrayInformation;
using Kiv::System::Tul::TulGuid;
using Kiv::System::Tul::TulVersion;
using Variant = TulVariant<512>;

static_assert(std::is_trivially_copyable_v<Variant>);
static_assert(std::is_trivially_copyable_v<TulString<512>>);
// The code that each constructor stores, as it goes on the wire.
static_assert(TulTypeOf<bool> == TulType::Bool && TulTypeOf<char16_t> == TulType::Char);
static_assert(TulTypeOf<std::int8_t> == TulType::Int8 && TulTypeOf<std::uint8_t> == TulType::UInt8);
static_assert(TulTypeOf<std::int16_t> == TulType::Int16 && TulTypeOf<std::uint16_t> == TulType::UInt16);
static_assert(TulTypeOf<std::int32_t> == TulType::Int32 && TulTypeOf<std::uint32_t> == TulType::UInt32);
static_assert(TulTypeOf<long long> == TulType::Int64 && TulTypeOf<std::uint64_t> == TulType::UInt64);
static_assert(TulTypeOf<float> == TulType::Real32 && TulTypeOf<double> == TulType::Real64);
static_assert(TulTypeOf<DateTime> == TulType::DateTime && TulTypeOf<TulVersion> == TulType::Version);
static_assert(TulTypeOf<TulGuid> == TulType::Guid && TulTypeOf<char> == TulType::None);

namespace
{
// A value with a code that no constructor gives, as the reader builds it.
template <class T>
Variant Raw(unsigned code, const T& value)
{
    Variant variant(static_cast<TulType>(code));
    std::memcpy(variant.GetData(), &value, sizeof(value));
    return variant;
}

template <class F>
std::string MessageOf(F&& action)
{
    try
    {
        action();
    }
    catch (const Kiv::Exception& e)
    {
        return e.GetMessage();
    }
    return "no exception";
}

template <class T>
T ValueOf(const Variant& variant)
{
    T value{};
    variant.GetValue(value);
    return value;
}
}  // namespace

TEST(TulVariantTest, StringsUpTo511CharactersAreStored)
{
    const std::string longest(511, 'x');
    EXPECT_EQ(Variant(longest.c_str()).GetChars(), longest);
    EXPECT_EQ(Variant(Kiv::String(longest)).ToString(), longest);
    EXPECT_EQ(Variant("abcdef", 3).ToString(), "abc");

    const Variant empty("");
    EXPECT_EQ(empty.GetType(), TulType::String);
    EXPECT_STREQ(empty.GetChars(), "");

    const std::string tooLong(512, 'x');
    EXPECT_EQ(MessageOf([&] { Variant v(tooLong.c_str()); }),
              "Cannot copy string: argument string length 512 exceeds MaxStringSize 512");
    EXPECT_THROW(Variant(Kiv::String(600, 'y')), Kiv::ArgumentException);
}

TEST(TulVariantTest, TypedReadNeedsTheExactCodeSaveForAliases)
{
    EXPECT_EQ(ValueOf<std::uint16_t>(Variant(std::uint16_t{65535})), 65535);
    EXPECT_EQ(ValueOf<double>(Variant(-2.5)), -2.5);
    EXPECT_TRUE(ValueOf<bool>(Raw(2, std::uint8_t{2})));
    EXPECT_EQ(ValueOf<DateTime>(Variant(DateTime(77, DateTimeKind::Local))),
              DateTime(77, DateTimeKind::Local));
    EXPECT_EQ(ValueOf<std::int32_t>(Raw(41, std::int32_t{-41})), -41);
    for (unsigned code : {42u, 44u, 46u, 48u})
    {
        EXPECT_EQ(ValueOf<std::int64_t>(Raw(code, std::int64_t{-1099511627776})),
                  std::int64_t{-1099511627776})
            << code;
    }

    EXPECT_EQ(
        MessageOf([] { ValueOf<std::uint32_t>(Variant(std::uint16_t{1})); }),
        "Cannot copy value to argument: TulVariant contains data type UInt16 but arg is of type UInt32");
    EXPECT_EQ(
        MessageOf([] { ValueOf<std::uint32_t>(Raw(41, 1)); }),
        "Cannot copy value to argument: TulVariant contains data type Alias32 but arg is of type UInt32");
    EXPECT_EQ(MessageOf([] { ValueOf<std::int64_t>(Raw(43, std::int64_t{1})); }),
              "Cannot copy value to argument: TulVariant contains data type 43 but arg is of type Int64");
    EXPECT_THROW(ValueOf<std::int64_t>(Raw(41, std::int64_t{1})), Kiv::InvalidCastException);
    EXPECT_THROW(ValueOf<std::int32_t>(Raw(42, std::int32_t{1})), Kiv::InvalidCastException);
}

TEST(TulVariantTest, TextReadOnlyForStringCodes)
{
    EXPECT_STREQ(Raw(26, 'a').GetChars(), "a");
    EXPECT_STREQ(Raw(36, 'b').GetChars(), "b");
    EXPECT_EQ(MessageOf([] { Variant().GetChars(); }),
              "Cannot convert to string: TulVariant is of type Unset");
    EXPECT_THROW(Variant(7).GetChars(), Kiv::InvalidCastException);
}

TEST(TulVariantTest, ToStringOfEveryCodeWithText)
{
    EXPECT_EQ(Variant().GetType(), TulType::Unset);
    EXPECT_EQ(Variant(std::uint64_t{1}).GetType(), TulType::UInt64);
    EXPECT_EQ(Variant(TulType::None).ToString(), "");
    EXPECT_EQ(Variant(TulType::Void).ToString(), "");
    EXPECT_EQ(Variant(true).ToString(), "true");
    EXPECT_EQ(Variant(u'\xffff').ToString(), "65535");
    EXPECT_EQ(Variant(std::int8_t{65}).ToString(), "65");
    EXPECT_EQ(Variant(std::uint8_t{255}).ToString(), "255");
    EXPECT_EQ(Variant(std::int16_t{-32768}).ToString(), "-32768");
    EXPECT_EQ(Variant(std::uint16_t{65535}).ToString(), "65535");
    EXPECT_EQ(Variant(std::numeric_limits<std::int32_t>::min()).ToString(), "-2147483648");
    EXPECT_EQ(Variant(std::numeric_limits<std::uint32_t>::max()).ToString(), "4294967295");
    EXPECT_EQ(Variant(std::numeric_limits<std::int64_t>::min()).ToString(), "-9223372036854775808");
    EXPECT_EQ(Variant(std::numeric_limits<std::uint64_t>::max()).ToString(), "18446744073709551615");
    EXPECT_EQ(Raw(41, std::int32_t{-7}).ToString(), "-7");
    EXPECT_EQ(Raw(48, std::int64_t{-8000000000}).ToString(), "-8000000000");
    EXPECT_EQ(Variant(1.5f).ToString(), "1.500000");
    EXPECT_EQ(Variant(1e20).ToString(), "100000000000000000000.000000");
    EXPECT_EQ(Variant(std::numeric_limits<double>::max()).ToString().size(), 316u);
    EXPECT_EQ(Variant("text").ToString(), "text");

    // 2026-11-21T08:15:30 UTC with 1234567 ticks.
    const DateTime instant(DateTime::UnixEpochTicks + 1795248930ull * DateTime::TicksPerSecond + 1234567,
                           DateTimeKind::Utc);
    EXPECT_EQ(Variant(instant).ToString(), "2026-11-21T08:15:30.1234567Z");
    EXPECT_EQ(Variant(TulVersion{1, 2, 3, 65535}).ToString(), "1.2.3.65535");
    TulGuid guid;
    for (std::uint8_t i = 0; i < 16; ++i)
    {
        guid.bytes[i] = static_cast<std::uint8_t>(i * 17);
    }
    EXPECT_EQ(Variant(guid).ToString(), "00112233-4455-6677-8899-aabbccddeeff");
}

TEST(TulVariantTest, ToStringOfCodesWithoutTextRaises)
{
    EXPECT_EQ(MessageOf([] { Variant(TulType::Struct).ToString(); }),
              "TulVariant::ToString() not supported for type 'Struct'");
    EXPECT_EQ(MessageOf([] { Raw(43, 0).ToString(); }), "TulVariant::ToString() not supported for type '43'");
    EXPECT_THROW(Variant(TulType::Array).ToString(), Kiv::NotSupportedException);
}

TEST(TulVariantTest, StructAndArrayKeepHeaderAndPointerSlotsApart)
{
    Variant structValue(TulType::Struct);
    EXPECT_EQ(structValue.GetReader(), nullptr);
    structValue.SetFieldCount(6);
    auto* reader = reinterpret_cast<Kiv::System::Tul::TulReader*>(&structValue);
    structValue.SetReader(reader);
    EXPECT_EQ(structValue.GetFieldCount(), 6u);
    EXPECT_EQ(structValue.GetReader(), reader);

    Variant arrayValue(TulType::Array);
    const TulArrayInformation info{28, 1, 0xffffffffu, 0xfffffffeu};
    arrayValue.SetArrayInformation(info);
    const Variant& constant = arrayValue;
    auto* writer = reinterpret_cast<Kiv::System::Tul::TulWriter*>(&arrayValue);
    constant.SetWriter(writer);
    arrayValue.SetReader(reader);
    EXPECT_EQ(arrayValue.GetArrayInformation(), info);
    EXPECT_EQ(arrayValue.GetWriter(), writer);
    EXPECT_EQ(arrayValue.GetReader(), reader);

    EXPECT_EQ(MessageOf([&] { arrayValue.GetFieldCount(); }),
              "TulVariant doesn't contain struct information");
    EXPECT_EQ(MessageOf([&] { structValue.GetArrayInformation(); }),
              "TulVariant doesn't contain array information");
    EXPECT_THROW(Variant(3).SetFieldCount(1), Kiv::InvalidOperationException);
    EXPECT_THROW(Variant("text").SetReader(reader), Kiv::InvalidOperationException);
}

TEST(TulStringTest, HoldsAtMost511Characters)
{
    const std::string longest(511, 'z');
    const TulString<512> text(longest.c_str());
    EXPECT_EQ(TulString<512>::MaxStringSize, 512u);
    EXPECT_EQ(text.GetLength(), 511u);
    EXPECT_EQ(text.ToString(), longest);
    EXPECT_EQ(TulString<512>(Kiv::String("name")), TulString<512>("name"));
    EXPECT_NE(TulString<512>("name"), TulString<512>("names"));
    EXPECT_EQ(Kiv::String::Format("[{}]", TulString<512>("abcdef", 2)), "[ab]");
    EXPECT_EQ(MessageOf([] { TulString<512>(Kiv::String(512, 'z')); }),
              "Cannot copy string: argument string length 512 exceeds MaxStringSize 512");

    // A reader that filled the whole buffer without a terminator must not be read past.
    TulString<512> filled;
    std::memset(filled.GetBuffer(), 'q', 512);
    EXPECT_EQ(filled.GetLength(), 512u);
}
