// Payloads as they come from other processes: read off the wire within bounds, and rendered as text.

#include <Nm/Internal/PayloadFormatter.h>
#include <Nm/Internal/TulVariantSerializer.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::PayloadFormatter;
using Kiv::System::Nm::Internal::TulVariantSerializer;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
using Kiv::System::Tul::ServiceManager;
using Kiv::System::Tul::TulSettings;
using Variant = TulVariant<512>;
using Payload = std::vector<Variant>;

namespace
{
Variant Raw(unsigned code, const char* bytes = "")
{
    Variant variant(static_cast<TulType>(code));
    std::memcpy(variant.GetData(), bytes, std::strlen(bytes) + 1);
    return variant;
}

// The text, or the type and message of what was raised.
std::string Format(const Payload& payload)
{
    try
    {
        return PayloadFormatter(payload).ToString();
    }
    catch (const Kiv::Exception& e)
    {
        return e.GetTypeName() + ": " + e.GetMessage();
    }
}

std::string Unsupported(const char* code)
{
    return std::string("Kiv::NotSupportedException: Payload: cannot format payload field with data type: ") +
           code;
}
}  // namespace

TEST(PayloadFormatterTest, FieldZeroIsTheFormatAndTheOthersItsArguments)
{
    EXPECT_EQ(Format({}), "");
    EXPECT_EQ(Format({"{}"}), "{}");  // a lone format string is taken verbatim
    EXPECT_EQ(Format({"a{}b", std::int32_t{7}}), "a7b");
    EXPECT_EQ(Format({"{1}-{0}", "x", "y"}), "y-x");
    EXPECT_EQ(Format({"{}!", "first", "unused"}), "first!");
    EXPECT_EQ(Format({"{{{}}}", "{0}"}), "{{0}}");  // braces in an argument are not read
    EXPECT_EQ(Format({std::int32_t{42}, "x"}), "42");
    EXPECT_EQ(Format({Variant(), "x"}), "");
}

TEST(PayloadFormatterTest, FiftyFieldsAreTheLimitWhateverTheFieldsHold)
{
    Kiv::String format;
    Payload payload{""};
    for (std::uint32_t i = 1; i < 50; ++i)
    {
        format += "{}";
        payload.emplace_back(i % 10);
    }
    payload[0] = Variant(format);
    EXPECT_EQ(Format(payload), "1234567890123456789012345678901234567890123456789");
    payload.emplace_back(Raw(0));
    EXPECT_EQ(Format(payload), "Kiv::NotSupportedException: Payload: cannot format payload with 51 fields.");
}

TEST(PayloadFormatterTest, ABadFormatStringRaisesAfterTheFieldsAreRendered)
{
    for (const char* format : {"{", "{2}", "{}{0}", "{:d}"})
    {
        EXPECT_THAT(Format({format, "a", "b"}),
                    ::testing::StartsWith("Kiv::Exception: Invalid String::Format(..) operation occurs with "
                                          "format string '" +
                                          std::string(format) + "': "))
            << format;
    }
    EXPECT_EQ(Format({"{", Raw(24)}), Unsupported("Version"));
}

TEST(PayloadFormatterTest, APlaceholderPadsItsTextUpToABoundedWidth)
{
    EXPECT_EQ(Format({"[{:>5}]", "ab"}), "[   ab]");
    EXPECT_EQ(Format({"[{:*^6}]", "ab"}), "[**ab**]");
    EXPECT_EQ(Format({"[{:.1}]", "ab"}), "[a]");
    EXPECT_EQ(Format({"{:4096}", "x"}).size(), 4096u);
    const std::string refused = "width exceeds the limit of a payload field";
    // However the width is reached: plain, behind fill and align (a fill of two bytes too), behind flags.
    for (const char* format :
         {"{:4097}", "{:>2000000000}", "{:\xc3\xa9<99999}", "{0:#099999}", "{}{:x>5000}"})
    {
        const std::string text = Format({format, "a", "b"});
        EXPECT_NE(text.find(refused), std::string::npos) << format << " gave " << text.substr(0, 80);
    }
}

TEST(PayloadFormatterTest, EachRenderableCodeHasItsOwnText)
{
    using std::numeric_limits;
    const Kiv::DateTime time(Kiv::DateTime::UnixEpochTicks, Kiv::DateTimeKind::Utc);
    const std::vector<std::pair<Variant, std::string>> cases = {
        {true, "true"},
        {std::uint8_t{65}, "A"},
        {std::uint8_t{0}, std::string(1, '\0')},
        {std::int8_t{-1}, "\xFF"},
        {numeric_limits<std::int16_t>::min(), "-32768"},
        {numeric_limits<std::uint16_t>::max(), "65535"},
        {numeric_limits<std::int32_t>::min(), "-2147483648"},
        {numeric_limits<std::uint32_t>::max(), "4294967295"},
        {numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
        {numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
        {0.1, "0.1"},
        {1e20, "1e+20"},
        {0.1f, "0.10000000149011612"},  // widened before it is formatted
        {Raw(36, "thirty-six"), "thirty-six"},
        {time, time.ToIso8601String()},
    };
    for (const auto& [value, text] : cases)
    {
        EXPECT_EQ(PayloadFormatter::FormatValue(value), text) << value.GetType();
    }
}

TEST(PayloadFormatterTest, CodesWithoutAPayloadTextRaiseAndTheFirstSuchFieldDecides)
{
    const std::vector<std::pair<unsigned, const char*>> codes = {
        {0, "None"},  {1, "Void"},      {3, "Char"},     {18, "Struct"},  {20, "Array"},  {24, "Version"},
        {25, "Guid"}, {26, "String26"}, {41, "Alias32"}, {42, "Alias64"}, {28, "Object"}, {99, "99"},
    };
    for (const auto& [code, name] : codes)
    {
        EXPECT_EQ(Format({"{}", Raw(code)}), Unsupported(name));
    }
    EXPECT_EQ(Format({"{}{}", Raw(3), Raw(25)}), Unsupported("Char"));
}

namespace
{
/// Reads an array of `length` one-byte elements of objects, the first `valid` of them readable, into
/// `payload`.
void ReadArrayOfVoids(std::uint32_t length, std::uint32_t valid, Payload& payload)
{
    RemotingWriter writer;
    writer.WriteTag(TulType::Array);
    writer.WriteTag(TulType::Object);
    writer.WriteArrayLength(length);
    for (std::uint32_t i = 0; i < length; ++i)
    {
        writer.WriteObjectType(i < valid ? TulType::Void : TulType::None);
    }
    RemotingReader reader(writer.GetData(), writer.GetSize());
    TulVariantSerializer::ReadPayload(reader, payload);
}
}  // namespace

TEST(TulVariantSerializerTest, APayloadIsBoundedByMemoryNotByAFieldCount)
{
    // The default admits far more fields than one frame of strings would need.
    const Payload large(100000, Variant(std::int32_t{7}));
    RemotingWriter writer;
    TulVariantSerializer::WritePayload(writer, large);
    RemotingReader reader(writer.GetData(), writer.GetSize());
    Payload received;
    TulVariantSerializer::ReadPayload(reader, received);
    ASSERT_EQ(received.size(), large.size());
    EXPECT_EQ(received.back().GetType(), TulType::Int32);

    // Under a bound of 100 elements' memory, an announced 101 is refused before anything is reserved,
    // also when the elements already held make up the difference.
    const TulSettings original = ServiceManager::GetSettings();
    TulSettings tight = original;
    tight.maxPayloadMemory = 100 * sizeof(Variant);
    ServiceManager::Configure(tight);
    Payload refused;
    EXPECT_THROW(ReadArrayOfVoids(101, 101, refused), Kiv::ArgumentException);
    EXPECT_EQ(refused.capacity(), 0u);
    Payload held(11, Variant(TulType::Void));
    EXPECT_THROW(ReadArrayOfVoids(90, 90, held), Kiv::ArgumentException);

    // Within the bound the whole announced length is reserved first, and a broken element stops the
    // reading where it is.
    Payload partial;
    EXPECT_THROW(ReadArrayOfVoids(100, 1, partial), Kiv::NotSupportedException);
    EXPECT_EQ(partial.size(), 1u);
    EXPECT_EQ(partial.capacity(), 100u);
    ServiceManager::Configure(original);
}
