#include <Nm/TulString.h>
#include <Nm/TulVariant.h>

#include <Kiv/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using ::testing::ThrowsMessage;
using Variant = TulVariant<512>;

// The code that a constructor stores goes on the wire; plain char has none, being signed or not by target.
static_assert(TulTypeOf<char16_t> == TulType::Char && TulTypeOf<long long> == TulType::Int64);
static_assert(TulTypeOf<std::uint8_t> == TulType::UInt8 && TulTypeOf<char> == TulType::None);

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
}  // namespace

TEST(TulVariantTest, TextsHoldAtMost511CharactersAndAreReadFromStringCodesOnly)
{
    const std::string longest(511, 'x');
    EXPECT_EQ(Variant(longest.c_str()).GetChars(), longest);
    EXPECT_EQ(TulString<512>(Kiv::String(longest)).ToString(), longest);
    EXPECT_EQ(Variant("abcdef", 3).ToString(), "abc");
    const auto tooLong = ThrowsMessage<Kiv::ArgumentException>(
        "Cannot copy string: argument string length 512 exceeds MaxStringSize 512");
    EXPECT_THAT([] { Variant(std::string(512, 'x').c_str()); }, tooLong);
    EXPECT_THAT([] { TulString<512>(Kiv::String(512, 'x')); }, tooLong);
    // A reader that filled the whole buffer without a terminator must not be read past.
    TulString<512> filled;
    std::memset(filled.GetBuffer(), 'q', 512);
    EXPECT_EQ(filled.GetLength(), 512u);

    EXPECT_STREQ(Raw(26, 'a').GetChars(), "a");
    EXPECT_STREQ(Raw(36, 'b').GetChars(), "b");
    EXPECT_THAT([] { Variant(7).GetChars(); }, ThrowsMessage<Kiv::InvalidCastException>(
                                                   "Cannot convert to string: TulVariant is of type Int32"));
}

TEST(TulVariantTest, TypedReadNeedsTheExactCodeSaveForAliases)
{
    std::int32_t small = 0;
    Raw(41, std::int32_t{-41}).GetValue(small);
    EXPECT_EQ(small, -41);
    std::int64_t large = 0;
    Raw(48, std::int64_t{-1099511627776}).GetValue(large);
    EXPECT_EQ(large, -1099511627776);
    std::uint32_t other = 0;
    EXPECT_THAT([&] { Variant(std::uint16_t{1}).GetValue(other); },
                ThrowsMessage<Kiv::InvalidCastException>("Cannot copy value to argument: TulVariant contains "
                                                         "data type UInt16 but arg is of type UInt32"));
    EXPECT_THROW(Raw(41, 1).GetValue(other), Kiv::InvalidCastException);
    EXPECT_THROW(Raw(42, std::int64_t{1}).GetValue(small), Kiv::InvalidCastException);
}

TEST(TulVariantTest, ToStringGivesNumbersAsDecimalsAndTimesInIso8601)
{
    EXPECT_EQ(Variant(std::int8_t{65}).ToString(), "65");
    EXPECT_EQ(Variant(std::numeric_limits<std::uint64_t>::max()).ToString(), "18446744073709551615");
    EXPECT_EQ(Variant(1.5f).ToString(), "1.500000");
    // 2026-11-21T08:15:30 UTC with 1234567 ticks.
    EXPECT_EQ(Variant(DateTime(DateTime::UnixEpochTicks + 1795248930ull * DateTime::TicksPerSecond + 1234567,
                               Kiv::DateTimeKind::Utc))
                  .ToString(),
              "2026-11-21T08:15:30.1234567Z");
    EXPECT_THAT([] { Raw(43, 0).ToString(); }, ThrowsMessage<Kiv::NotSupportedException>(
                                                   "TulVariant::ToString() not supported for type '43'"));
}
