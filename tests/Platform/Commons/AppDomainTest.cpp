// The AppDomain: one per process, from Create to Dispose.

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv;
using namespace Kiv::System::Commons;
using ::testing::ThrowsMessage;

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
