// The exception family: messages formatted once, inner exceptions, and ArgumentException::Create.

#include <Kiv/Exceptions.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv;

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
