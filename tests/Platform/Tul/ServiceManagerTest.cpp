#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulAuthorizator.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include <unistd.h>

using namespace Kiv::System::Tul;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace
{
class RefuseAll : public ITulAuthorizator
{
public:
    bool IsAuthorized(const char*, const char*, const char*, const TulCallerIdentity&) override
    {
        return false;
    }
};

class ServiceManagerTest : public ::testing::Test
{
protected:
    void SetUp() override { ServiceManager::Reset(); }
    void TearDown() override { ServiceManager::Reset(); }

    /// Whether `provider` gives a working echo service that `factory` has just made.
    static bool MadeBy(const char* provider, Echo::EchoServiceFactory& factory)
    {
        const int before = factory.made;
        const auto echo = Echo::GetEcho(provider);
        return echo != nullptr && echo->Echo("x") == "x" && factory.made == before + 1;
    }

    Echo::EchoServiceFactory first, second;
    RefuseAll policy;
};
}  // namespace

TEST_F(ServiceManagerTest, EachCallerGetsAServiceMadeByTheFactoryPublishedUnderTheNames)
{
    ServiceManager::PublishService("ProcessA", Echo::serviceName, first);
    ServiceManager::PublishService("ProcessB", Echo::serviceName, second);
    EXPECT_TRUE(MadeBy("ProcessA", first));
    EXPECT_TRUE(MadeBy("ProcessA", first));
    EXPECT_TRUE(MadeBy("ProcessB", second));
    EXPECT_EQ(first.lastAuthorizator, nullptr);

    EXPECT_EQ(Echo::GetEcho("Other"), nullptr);
    EXPECT_EQ(Echo::GetEcho(""), nullptr);
    Echo::EchoProxyFactory otherService("Test.IOtherService");
    EXPECT_EQ(ServiceManager::GetService("ProcessA", otherService), nullptr);

    // Publishing again replaces, for that provider only.
    ServiceManager::PublishService("ProcessB", Echo::serviceName, first);
    ServiceManager::PublishService("ProcessB", Echo::serviceName, first);
    EXPECT_TRUE(MadeBy("ProcessB", first));
    EXPECT_TRUE(MadeBy("ProcessA", first));
    EXPECT_EQ(second.made, 1);

    // The factory builds a guarded service's security stub on the installed policy and the provider.
    EXPECT_EQ(ServiceManager::SetAuthorizator(&policy), nullptr);
    EXPECT_TRUE(MadeBy("ProcessA", first));
    EXPECT_EQ(first.lastAuthorizator, &policy);
    Echo::EchoServiceFactory guarded(true);
    ServiceManager::PublishService("ProcessC", Echo::serviceName, guarded);
    EXPECT_THAT([] { Echo::GetEcho("ProcessC")->Echo("x"); },
                ThrowsMessage<Kiv::UnauthorizedAccessException>(HasSubstr("of provider 'ProcessC' for uid")));
}

TEST_F(ServiceManagerTest, ResetWithdrawsPublicationsAndAuthorizatorAndNullOrEmptyNamesAreRefused)
{
    ServiceManager::PublishService("Kiv", Echo::serviceName, first);
    ServiceManager::SetAuthorizator(&policy);
    ServiceManager::Reset();
    EXPECT_EQ(Echo::GetEcho("Kiv"), nullptr);
    EXPECT_EQ(ServiceManager::SetAuthorizator(nullptr), nullptr);

    EXPECT_THROW(ServiceManager::PublishService(nullptr, Echo::serviceName, first), Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::PublishService("Kiv", nullptr, first), Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::PublishService("Kiv", "", first), Kiv::ArgumentException);
    Echo::EchoProxyFactory proxyFactory;
    EXPECT_THROW(ServiceManager::GetService(nullptr, proxyFactory), Kiv::ArgumentException);
}

TEST(TulCallerIdentityTest, InProcessCallerIsThisProcessAndScopesNestPerThread)
{
    const TulCallerIdentity self = TulCallerIdentity::GetProcessIdentity();
    EXPECT_EQ(self, (TulCallerIdentity{geteuid(), getegid(), getpid()}));
    EXPECT_EQ(TulCallerIdentity::GetCurrent(), self);

    const TulCallerIdentity outer{1001, 1002, 1003};
    {
        TulCallerIdentity::Scope outerScope(outer);
        {
            TulCallerIdentity::Scope innerScope({2001, 2002, 2003});
            EXPECT_EQ(TulCallerIdentity::GetCurrent(), (TulCallerIdentity{2001, 2002, 2003}));
        }
        EXPECT_EQ(TulCallerIdentity::GetCurrent(), outer);
        TulCallerIdentity seenByOtherThread;
        std::thread([&seenByOtherThread] { seenByOtherThread = TulCallerIdentity::GetCurrent(); }).join();
        EXPECT_EQ(seenByOtherThread, self);
    }
    EXPECT_EQ(TulCallerIdentity::GetCurrent(), self);
}
