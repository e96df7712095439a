#include <Kiv/AppDomain.h>
#include <Kiv/DateTime.h>
#include <Kiv/Exceptions.h>
#include <Kiv/SecureString.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>

using namespace Kiv;
using namespace Kiv::System::Commons;
using ::testing::ThrowsMessage;

namespace
{
void ReturningHandler(const char*, const char*) {}

DateTime AtUnixSeconds(std::uint64_t seconds, std::uint64_t extraTicks, DateTimeKind kind)
{
    return DateTime(DateTime::UnixEpochTicks + seconds * DateTime::TicksPerSecond + extraTicks, kind);
}
}  // namespace

TEST(StringFormatTest, FillsAutomaticAndNumberedPlaceholders)
{
    EXPECT_EQ(String::Format("{} and {}", 1, String("two")), "1 and two");
    EXPECT_EQ(String::Format("{1}{0}{1}", 'a', true), "trueatrue");
    EXPECT_EQ(String::Format("{{}} {}", 2.5), "{} 2.5");
}

TEST(StringFormatTest, BadFormatStringGoesToTheHandler)
{
    EXPECT_THAT(
        [] { String::Format("{1}", 1); },
        ThrowsMessage<Exception>(
            "Invalid String::Format(..) operation occurs with format string '{1}': argument not found"));
    EXPECT_NO_THROW(String::Format("{:d}", 1));

    // A replaced handler that returns leaves the result empty; null restores the raising one.
    String::SetFormatExceptionHandler(&ReturningHandler);
    EXPECT_EQ(String::Format("{5}", 1), "");
    String::SetFormatExceptionHandler(nullptr);
    EXPECT_THROW(String::Format("{5}", 1), Exception);
}

TEST(ExceptionTest, MessageIsFormattedAtConstructionOnlyWithArguments)
{
    EXPECT_STREQ(InvalidOperationException("value {0} of {1}", 3, "x").what(), "value 3 of x");
    EXPECT_EQ(Exception("kept {0} as is").GetMessage(), "kept {0} as is");
    EXPECT_THROW(Exception("{2}", 1), Exception);
}

TEST(ExceptionTest, ToStringNamesTheDynamicTypeOfEveryInnerExceptionAndCopiesKeepThem)
{
    ArgumentException middle("middle");
    middle.SetInnerException(InvalidCastException("deepest"));
    Exception outer("outer");
    outer.SetInnerException(middle);
    const Exception copy = outer;

    EXPECT_EQ(copy.ToString(),
              "outer (Kiv::Exception)\n"
              "InnerException:\n"
              "   middle (Kiv::ArgumentException)\n"
              "---InnerException:\n"
              "      deepest (Kiv::InvalidCastException)");
    EXPECT_EQ(outer.Format(1, false), "   outer (Kiv::Exception)");
    EXPECT_THROW(outer.GetInnerException()->Rethrow(), ArgumentException);
}

TEST(ArgumentExceptionTest, CreateComposesTextNameAndValueWithoutReformatting)
{
    const auto e = ArgumentException::Create("notificationName", String("A.{0}"), "Bad {} name");
    EXPECT_EQ(e.GetMessage(), "Bad {} name (argument 'notificationName', value 'A.{0}')");
    EXPECT_EQ(e.GetArgumentName(), "notificationName");

    const auto range = ArgumentOutOfRangeException::Create("fieldIndex", 7);
    EXPECT_EQ(range.GetMessage(),
              "Specified argument was out of the range of valid values. (argument 'fieldIndex', value '7')");
    EXPECT_EQ(range.GetArgumentName(), "fieldIndex");
    EXPECT_THROW(range.Rethrow(), ArgumentException);
}

TEST(DateTimeTest, IsoTextOfKnownInstants)
{
    EXPECT_EQ(AtUnixSeconds(1795248930, 1234567, DateTimeKind::Utc).ToIso8601String(),
              "2026-11-21T08:15:30.1234567Z");
    EXPECT_EQ(AtUnixSeconds(1795248930, 0, DateTimeKind::Unspecified).ToIso8601String(),
              "2026-11-21T08:15:30.0000000");
    EXPECT_EQ(AtUnixSeconds(951782400, 0, DateTimeKind::Utc).ToIso8601String(),
              "2000-02-29T00:00:00.0000000Z");
    EXPECT_EQ(DateTime(0, DateTimeKind::Utc).ToIso8601String(), "0001-01-01T00:00:00.0000000Z");
    // Local time carries the machine's offset, "+hh:mm" or "-hh:mm".
    const std::string local = AtUnixSeconds(1795248930, 0, DateTimeKind::Local).ToIso8601String();
    ASSERT_EQ(local.size(), 33u) << local;
    EXPECT_TRUE(local[27] == '+' || local[27] == '-') << local;
    EXPECT_EQ(local[30], ':') << local;
}

TEST(DateTimeTest, KindLivesInTheTopTwoBitsOfTheRawValue)
{
    const DateTime utc(42, DateTimeKind::Utc);
    EXPECT_EQ(utc.GetRawValue(), (std::uint64_t{1} << 62) | 42);
    EXPECT_EQ(utc.GetTicks(), 42u);
    EXPECT_EQ(DateTime::FromRawValue(std::uint64_t{2} << 62).GetKind(), DateTimeKind::Local);
}

TEST(DateTimeTest, UtcNowIsUtcAndCurrent)
{
    const DateTime now = DateTime::GetUtcNow();
    const auto unixNow = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    EXPECT_EQ(now.GetKind(), DateTimeKind::Utc);
    EXPECT_NEAR(static_cast<double>((now.GetTicks() - DateTime::UnixEpochTicks) / DateTime::TicksPerSecond),
                static_cast<double>(unixNow), 5.0);
}

TEST(SecureStringTest, NeverWritesPastTheDestinationAndAlwaysTerminates)
{
    char buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), 'x');
    EXPECT_EQ(SecureStrncpy(buffer, 4, "abcdef", 6), ERANGE);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], 'x');

    EXPECT_EQ(SecureStrncpy(buffer, sizeof(buffer), "abcdef", 2), 0);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(SecureStrncpy(buffer, sizeof(buffer), "ab", 5), 0);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(SecureStrncpy(buffer, 0, "ab", 2), EINVAL);
    EXPECT_EQ(SecureStrncpy(buffer, sizeof(buffer), nullptr, 2), EINVAL);
    EXPECT_STREQ(buffer, "");

    EXPECT_EQ(SecureStrnlen("abcdef", 4), 4u);
    EXPECT_EQ(SecureStrnlen(nullptr, 4), 0u);
}

TEST(AppDomainTest, OneAppDomainPerProcessFromCreateUntilDispose)
{
    EXPECT_THAT([] { Singleton<AppDomain>::GetInstance(); },
                ThrowsMessage<Exception>(
                    "Singleton instance of type 'Kiv::System::Commons::AppDomain' was not created yet!"));

    AppDomain& domain = AppDomain::Create("MainProcess");
    EXPECT_EQ(&Singleton<AppDomain>::GetInstance(), &domain);
    EXPECT_THROW(AppDomain::Create("Second"), InvalidOperationException);
    EXPECT_EQ(Singleton<AppDomain>::GetInstance().GetName(), "MainProcess");

    AppDomain::Dispose();
    EXPECT_EQ(Singleton<AppDomain>::pInstance, nullptr);
    EXPECT_NO_THROW(AppDomain::Dispose());
    EXPECT_EQ(AppDomain::Create("Again").GetName(), "Again");
    AppDomain::Dispose();
}
