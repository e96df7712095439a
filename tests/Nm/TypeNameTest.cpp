#include <Nm/TypeName.h>

#include <Kiv/Exception.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Kiv::TypeName;

namespace Probe
{
struct Subclass;
template <class T>
struct Holder
{
};
}  // namespace Probe

TEST(TypeNameTest, TheFullNameWithKeywordsCutEvenInsideLongerWords)
{
    EXPECT_EQ(Kiv::String::Format("<{}>", TypeName<Probe::Holder<int>>()), "<Probe::Holder<int>>");
    // The demangler writes the qualifier behind the type, so "Subclass const" holds "class ".
    EXPECT_EQ(TypeName<Probe::Holder<const Probe::Subclass>>().GetName(), "Probe::Holder<Probe::Subconst>");
    EXPECT_EQ(TypeName<int>("class Foo::Bar", true).GetName(), "class Foo::Bar")
        << "a common name is verbatim";
    EXPECT_THAT(
        [] { TypeName<int>("not a mangled name!", false); },
        ::testing::ThrowsMessage<Kiv::Exception>("Demangling of type name 'not a mangled name!' failed."));
}
