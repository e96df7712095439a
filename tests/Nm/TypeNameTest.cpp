#include <Nm/RuntimeTypeInfo.h>
#include <Nm/Severity.h>
#include <Nm/TypeName.h>

#include <Kiv/Exception.h>

#include <gtest/gtest.h>

using Kiv::RuntimeTypeInfo;
using Kiv::TypeName;

namespace Probe
{
struct Subclass
{
};
struct Mystruct
{
};
enum Myenum
{
};
template <class T>
struct Holder
{
};
}  // namespace Probe

TEST(RuntimeTypeInfoTest, DemanglesOrGivesEmptyText)
{
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("i"), "int");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol(typeid(Probe::Subclass).name()), "Probe::Subclass");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("not a mangled name!"), "");
}

TEST(TypeNameTest, NameOfTypeCarriesFullNamespace)
{
    const TypeName<Kiv::System::Nm::Severity> name;
    EXPECT_EQ(name.GetName(), "Kiv::System::Nm::Severity");
    EXPECT_FALSE(name.IsCommonName());
    EXPECT_EQ(Kiv::String::Format("<{}>", TypeName<Probe::Holder<int>>()), "<Probe::Holder<int>>");
}

TEST(TypeNameTest, CutsKeywordsEvenInsideLongerWords)
{
    // The demangler writes the qualifier behind the type, so "Subclass const" holds "class ".
    EXPECT_EQ(TypeName<Probe::Holder<const Probe::Subclass>>().GetName(), "Probe::Holder<Probe::Subconst>");
    EXPECT_EQ(TypeName<Probe::Holder<const Probe::Mystruct>>().GetName(), "Probe::Holder<Probe::Myconst>");
    EXPECT_EQ(TypeName<Probe::Holder<const Probe::Myenum>>().GetName(), "Probe::Holder<Probe::Myconst>");
    EXPECT_EQ(TypeName<int>(typeid(Probe::Holder<Probe::Subclass>).name(), false).GetName(),
              "Probe::Holder<Probe::Subclass>");
}

TEST(TypeNameTest, CommonNameIsTakenVerbatim)
{
    const TypeName<int> name("class Foo::Bar", true);
    EXPECT_EQ(name.GetName(), "class Foo::Bar");
    EXPECT_TRUE(name.IsCommonName());
}

TEST(TypeNameTest, FailedDemanglingRaisesWithTheMangledName)
{
    try
    {
        TypeName<int>("not a mangled name!", false);
        FAIL() << "no exception";
    }
    catch (const Kiv::Exception& e)
    {
        EXPECT_EQ(e.GetMessage(), "Demangling of type name 'not a mangled name!' failed.");
    }
    EXPECT_THROW(TypeName<int>(nullptr, false), Kiv::Exception);
}
