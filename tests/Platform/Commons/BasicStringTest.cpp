// String::Format: the system's formatting, and what a bad format string does.

#include <Kiv/BasicString.h>
#include <Kiv/Exceptions.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv;
using ::testing::ThrowsMessage;

namespace
{
void ReturningHandler(const char*, const char*) {}
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
