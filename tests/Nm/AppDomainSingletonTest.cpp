#include <Nm/AppDomainSingleton.h>

#include <Kiv/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

// Other singletons are made and found from constructors and destructors throughout the system's own
// tests, which would deadlock if the table were locked meanwhile; here are the rules that they don't show.

using Kiv::System::Commons::AppDomain;
using Kiv::System::Nm::AppDomainSingleton;
using ::testing::ThrowsMessage;

namespace
{
struct Service : AppDomainSingleton<Service>
{
    static inline int alive = 0;
    const int value;

    explicit Service(int value) : value(value)
    {
        if (value < 0)
        {
            throw std::runtime_error("refused");
        }
        ++alive;
    }
    ~Service() { --alive; }
};
}  // namespace

TEST(AppDomainSingletonTest, OneInstancePerTypeAndAThrowingConstructorLeavesNoEntry)
{
    const auto noAppDomain = ThrowsMessage<Kiv::Exception>(
        "Singleton instance of type 'Kiv::System::Commons::AppDomain' was not created yet!");
    EXPECT_FALSE(Service::IsCreated());
    EXPECT_THAT([] { Service::CreateInstance(1); }, noAppDomain);
    EXPECT_THAT([] { Service::GetInstance(); }, noAppDomain);

    AppDomain::Create("SingletonTest");
    EXPECT_THAT(
        [] { Service::GetInstance(); },
        ThrowsMessage<Kiv::Exception>(
            "AppDomain Singleton instance of type '(anonymous namespace)::Service' was not created yet!"));
    Service::CreateInstance(7);
    EXPECT_EQ(Service::GetInstance().value, 7);
    EXPECT_THAT(
        [] { Service::CreateInstance(8); },
        ThrowsMessage<Kiv::Exception>(
            "AppDomain Singleton instance of type '(anonymous namespace)::Service' was created yet!"));
    EXPECT_EQ(Service::alive, 1);

    Service::DisposeInstance();
    EXPECT_EQ(Service::alive, 0);
    EXPECT_THROW(Service::CreateInstance(-1), std::runtime_error);
    EXPECT_FALSE(Service::IsCreated());
    EXPECT_NO_THROW(Service::DisposeInstance());
    AppDomain::Dispose();
}
