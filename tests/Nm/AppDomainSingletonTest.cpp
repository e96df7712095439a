#include <Nm/AppDomainSingleton.h>

#include <Kiv/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Singletons are made, found and disposed from constructors and destructors, with and without an
// AppDomain, throughout the system's own tests; here are the refusals that they don't show.

using Kiv::System::Commons::AppDomain;
using ::testing::ThrowsMessage;

namespace
{
struct Service : Kiv::System::Nm::AppDomainSingleton<Service>
{
    explicit Service(int value) : value(value) {}
    const int value;
};
}  // namespace

TEST(AppDomainSingletonTest, OneInstancePerTypeAndNoneWithoutAnAppDomain)
{
    EXPECT_FALSE(Service::IsCreated());
    EXPECT_THAT([] { Service::CreateInstance(1); },
                ThrowsMessage<Kiv::Exception>(
                    "Singleton instance of type 'Kiv::System::Commons::AppDomain' was not created yet!"));
    AppDomain::Create("SingletonTest");
    EXPECT_THAT(
        [] { Service::GetInstance(); },
        ThrowsMessage<Kiv::Exception>(
            "AppDomain Singleton instance of type '(anonymous namespace)::Service' was not created yet!"));
    Service::CreateInstance(7);
    EXPECT_THAT(
        [] { Service::CreateInstance(8); },
        ThrowsMessage<Kiv::Exception>(
            "AppDomain Singleton instance of type '(anonymous namespace)::Service' was created yet!"));
    EXPECT_EQ(Service::GetInstance().value, 7);
    Service::DisposeInstance();
    AppDomain::Dispose();
}
