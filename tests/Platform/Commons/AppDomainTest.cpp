#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>

#include "Support/StringPrinter.h"

#include <gtest/gtest.h>

#include <mutex>
#include <shared_mutex>

using namespace Kiv;
using namespace Kiv::System::Commons;

namespace
{
class AppDomainTest : public ::testing::Test
{
protected:
    void SetUp() override { AppDomain::Dispose(); }
    void TearDown() override { AppDomain::Dispose(); }
};
}  // namespace

TEST_F(AppDomainTest, GetInstanceWithoutAppDomainRaises)
{
    EXPECT_EQ(Singleton<AppDomain>::pInstance, nullptr);
    try
    {
        Singleton<AppDomain>::GetInstance();
        FAIL() << "no exception";
    }
    catch (const Exception& e)
    {
        EXPECT_EQ(e.GetMessage(),
                  "Singleton instance of type 'Kiv::System::Commons::AppDomain' was not created yet!");
        EXPECT_EQ(e.GetTypeName(), "Kiv::Exception");
    }
}

TEST_F(AppDomainTest, CreateMakesTheInstanceAndDisposeRemovesIt)
{
    AppDomain& domain = AppDomain::Create("MainProcess");
    EXPECT_EQ(Singleton<AppDomain>::pInstance, &domain);
    EXPECT_EQ(&Singleton<AppDomain>::GetInstance(), &domain);
    EXPECT_EQ(domain.GetName(), "MainProcess");
    EXPECT_TRUE(domain.GetSingletonTable().empty());

    AppDomain::Dispose();
    EXPECT_EQ(Singleton<AppDomain>::pInstance, nullptr);
    EXPECT_THROW(Singleton<AppDomain>::GetInstance(), Exception);
    EXPECT_NO_THROW(AppDomain::Dispose());

    AppDomain& again = AppDomain::Create("Second");
    EXPECT_EQ(again.GetName(), "Second");
}

TEST_F(AppDomainTest, SecondCreateIsRefused)
{
    AppDomain& first = AppDomain::Create("One");
    EXPECT_THROW(AppDomain::Create("Two"), InvalidOperationException);
    EXPECT_EQ(Singleton<AppDomain>::pInstance, &first);
    EXPECT_EQ(Singleton<AppDomain>::GetInstance().GetName(), "One");
}

TEST_F(AppDomainTest, SingletonTableKeepsPointersByTypeUnderItsLock)
{
    AppDomain& domain = AppDomain::Create("Table");
    int value = 5;
    {
        std::unique_lock<std::shared_mutex> lock(domain.GetSingletonLock());
        domain.GetSingletonTable().emplace(typeid(int), &value);
    }
    {
        std::shared_lock<std::shared_mutex> lock(domain.GetSingletonLock());
        auto found = domain.GetSingletonTable().find(typeid(int));
        ASSERT_NE(found, domain.GetSingletonTable().end());
        EXPECT_EQ(found->second, &value);
        EXPECT_EQ(domain.GetSingletonTable().count(typeid(long)), 0u);
    }
}
