#include <Nm/RuntimeTypeInfo.h>
#include <Nm/Severity.h>
#include <Nm/TypeName.h>

#include <Kiv/Exception.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Kiv::TypeName;

namespace Probe
{
struct Subclass;
struct Mystruct;
enum Myenum : int;
template <class T>
struct Holder
{
};
}  // namespace Probe

TEST(TypeNameTest, TheFullNameWithKeywordsCutEvenInsideLongerWords)
{
    EXPECT_EQ(TypeName<Kiv::System::Nm::Severity>().GetName(), "Kiv::System::Nm::Severity");
    EXPECT_FALSE(TypeName<int>().IsCommonName());
    EXPECT_EQ(Kiv::String::Format("<{}>", TypeName<Probe::Holder<int>>()), "<Probe::Holder<int>>");
    // The demangler writes the qualifier behind the type, so "Subclass const" holds "class ".
    EXPECT_EQ(TypeName<Probe::Holder<const Probe::Subclass>>().GetName(), "Probe::Holder<Probe::Subconst>");
    EXPECT_EQ(TypeName<Probe::Holder<const Probe::Mystruct>>().GetName(), "Probe::Holder<Probe::Myconst>");
    EXPECT_EQ(TypeName<Probe::Holder<const Probe::Myenum>>().GetName(), "Probe::Holder<Probe::Myconst>");
}

TEST(TypeNameTest, ACommonNameIsTakenVerbatimAndAnUnreadableOneRaises)
{
    const TypeName<int> name("class Foo::Bar", true);
    EXPECT_EQ(name.GetName(), "class Foo::Bar");
    EXPECT_TRUE(name.IsCommonName());
    EXPECT_EQ(Kiv::RuntimeTypeInfo::DemangleSymbol("not a mangled name!"), "");
    EXPECT_THAT(
        [] { TypeName<int>("not a mangled name!", false); },
        ::testing::ThrowsMessage<Kiv::Exception>("Demangling of type name 'not a mangled name!' failed."));
    EXPECT_THROW(TypeName<int>(nullptr, false), Kiv::Exception);
}
