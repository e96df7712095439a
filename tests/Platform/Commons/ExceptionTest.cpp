#include <Kiv/Exceptions.h>

#include <gtest/gtest.h>

#include <map>
#include <unordered_map>

using namespace Kiv;

namespace
{
String FormatMessageOf(const char* format, int value)
{
    try
    {
        String::Format(format, value);
    }
    catch (const Exception& e)
    {
        return e.GetMessage();
    }
    return "no exception";
}

void ReturningHandler(const char*, const char*) {}
}  // namespace

TEST(StringFormatTest, FillsAutomaticAndNumberedPlaceholders)
{
    EXPECT_EQ(String::Format("{} and {}", 1, String("two")), "1 and two");
    EXPECT_EQ(String::Format("{1}{0}{1}", 'a', true), "trueatrue");
    EXPECT_EQ(String::Format("{{}} {}", 2.5), "{} 2.5");
    EXPECT_EQ(String::Format("no placeholder", 7), "no placeholder");
}

TEST(StringFormatTest, BadFormatStringRaisesWithTheFormatAndTheReason)
{
    EXPECT_EQ(FormatMessageOf("{1}", 1),
              "Invalid String::Format(..) operation occurs with format string '{1}': argument not found");
    EXPECT_EQ(FormatMessageOf("{} {0}", 1).rfind("Invalid String::Format(..) operation occurs with format string "
                                                 "'{} {0}': ",
                                                 0),
              0u);
    EXPECT_EQ(FormatMessageOf("{:d}", 1), "no exception");
}

TEST(StringFormatTest, ReplacedHandlerThatReturnsYieldsEmptyText)
{
    auto previous = String::SetFormatExceptionHandler(&ReturningHandler);
    EXPECT_EQ(String::Format("{5}", 1), "");
    String::SetFormatExceptionHandler(previous);
    EXPECT_THROW(String::Format("{5}", 1), Exception);
}

TEST(StringTest, WorksAsKeyOfOrderedAndUnorderedMaps)
{
    std::map<String, int> ordered{{"b", 2}, {"a", 1}};
    std::unordered_map<String, int> unordered{{"x", 3}};
    EXPECT_EQ(ordered.begin()->first, "a");
    EXPECT_EQ(unordered.at(String("x")), 3);
    String moved("a text longer than any small-string buffer could hold inline");
    const char* storage = moved.data();
    String target(std::move(moved));
    EXPECT_EQ(target.data(), storage);
}

TEST(ExceptionTest, MessageIsFormattedAtConstructionOnlyWithArguments)
{
    EXPECT_STREQ(InvalidOperationException("value {0} of {1}", 3, "x").what(), "value 3 of x");
    EXPECT_EQ(Exception("kept {0} as is").GetMessage(), "kept {0} as is");
    EXPECT_THROW(Exception("{2}", 1), Exception);
}

TEST(ExceptionTest, ToStringNamesTheDynamicTypeAndEveryInnerException)
{
    InvalidCastException innermost("deepest");
    ArgumentException middle("middle");
    middle.SetInnerException(innermost);
    Exception outer("outer");
    outer.SetInnerException(middle);

    EXPECT_EQ(outer.ToString(),
              "outer (Kiv::Exception)\n"
              "InnerException:\n"
              "   middle (Kiv::ArgumentException)\n"
              "---InnerException:\n"
              "      deepest (Kiv::InvalidCastException)");
    EXPECT_EQ(outer.Format(1, false), "   outer (Kiv::Exception)");
}

TEST(ExceptionTest, CopiesKeepTheInnerExceptionAndCloneKeepsTheType)
{
    Exception outer("outer");
    outer.SetInnerException(NotSupportedException("inner"));
    const Exception copy = outer;
    ASSERT_NE(copy.GetInnerException(), nullptr);
    EXPECT_EQ(copy.GetInnerException()->GetTypeName(), "Kiv::NotSupportedException");

    const Exception& base = XmlException("xml");
    EXPECT_THROW(base.Rethrow(), XmlException);
    EXPECT_EQ(base.Clone()->GetTypeName(), "Kiv::XmlException");
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

TEST(XmlExceptionTest, AtLineNamesFileAndLine)
{
    EXPECT_EQ(XmlException::AtLine("/etc/x.xml", 12, "Missing XML element 'A'").GetMessage(),
              "/etc/x.xml(12): Missing XML element 'A'");
}
