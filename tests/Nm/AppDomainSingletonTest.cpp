#include <Nm/AppDomainSingleton.h>

#include <Kiv/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <utility>

using Kiv::System::Commons::AppDomain;
using Kiv::System::Nm::AppDomainSingleton;
using ::testing::ThrowsMessage;

namespace
{
struct Helper : AppDomainSingleton<Helper>
{
};

// Runs test code in its constructor and destructor, as the real singletons run theirs.
struct Service : AppDomainSingleton<Service>
{
    static inline std::function<void()> onConstruct;
    static inline std::function<void()> onDestroy;
    static inline int alive = 0;
    const int value;

    explicit Service(int value) : value(value)
    {
        if (onConstruct)
        {
            std::exchange(onConstruct, nullptr)();
        }
        ++alive;
    }
    ~Service()
    {
        --alive;
        if (onDestroy)
        {
            std::exchange(onDestroy, nullptr)();
        }
    }
};

class AppDomainSingletonTest : public ::testing::Test
{
protected:
    void SetUp() override { AppDomain::Create("SingletonTest"); }
    void TearDown() override
    {
        Service::DisposeInstance();
        Helper::DisposeInstance();
        AppDomain::Dispose();
        EXPECT_EQ(Service::alive, 0);
    }
};
}  // namespace

TEST_F(AppDomainSingletonTest, OneInstancePerTypeAndAThrowingConstructorLeavesNoEntry)
{
    EXPECT_THAT(
        [] { Service::GetInstance(); },
        ThrowsMessage<Kiv::Exception>(
            "AppDomain Singleton instance of type '(anonymous namespace)::Service' was not created yet!"));
    Service::CreateInstance(7);
    EXPECT_TRUE(Service::IsCreated() && !Helper::IsCreated());
    EXPECT_EQ(Service::GetInstance().value, 7);
    EXPECT_THAT(
        [] { Service::CreateInstance(8); },
        ThrowsMessage<Kiv::Exception>(
            "AppDomain Singleton instance of type '(anonymous namespace)::Service' was created yet!"));
    EXPECT_EQ(Service::alive, 1);

    Service::DisposeInstance();
    Service::onConstruct = [] { throw std::runtime_error("refused"); };
    EXPECT_THROW(Service::CreateInstance(1), std::runtime_error);
    EXPECT_FALSE(Service::IsCreated());

    AppDomain::Dispose();
    EXPECT_FALSE(Service::IsCreated());
    EXPECT_THAT([] { Service::CreateInstance(1); },
                ThrowsMessage<Kiv::Exception>(
                    "Singleton instance of type 'Kiv::System::Commons::AppDomain' was not created yet!"));
    AppDomain::Create("SingletonTest");
}

TEST_F(AppDomainSingletonTest, ConstructorAndDestructorRunWithTheTableUnlocked)
{
    // Creating and disposing another singleton takes the write lock, which would deadlock if held here.
    Service::onConstruct = [] { Helper::CreateInstance(); };
    Service::CreateInstance(3);
    EXPECT_TRUE(Helper::IsCreated());

    int foundDuringDestruction = 0;
    Service::onDestroy = [&]
    {
        foundDuringDestruction = Service::GetInstance().value;
        Helper::DisposeInstance();
    };
    Service::DisposeInstance();
    EXPECT_EQ(foundDuringDestruction, 3);
    EXPECT_FALSE(Service::IsCreated() || Helper::IsCreated());
}
