#include "Platform/Tul/FakeServices.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulAuthorizator.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <memory>
#include <thread>

using namespace Kiv::System::Tul;
using namespace Fake;

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

/// What the service under the names answers to Echo(10): -1 for none.
int EchoTen(const char* provider, ITulServiceProxyFactory& proxyFactory)
{
    std::unique_ptr<ITulService> service(ServiceManager::GetService(provider, proxyFactory));
    return service == nullptr ? -1 : dynamic_cast<IEchoService&>(*service).Echo(10);
}

class ServiceManagerTest : public ::testing::Test
{
protected:
    void SetUp() override { ServiceManager::Reset(); }
    void TearDown() override { ServiceManager::Reset(); }

    EchoProxyFactory proxyFactory;
};
}  // namespace

TEST_F(ServiceManagerTest, PublishedServiceIsMadeByItsFactoryForEachCaller)
{
    EchoServiceFactory factory(100);
    RefuseAll policy;
    ServiceManager::PublishService("Kiv", "Test.IEchoService", factory);

    std::unique_ptr<ITulService> first(ServiceManager::GetService("Kiv", proxyFactory));
    std::unique_ptr<ITulService> second(ServiceManager::GetService("Kiv", proxyFactory));
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(dynamic_cast<IEchoService&>(*first).Echo(1), 101);
    EXPECT_EQ(factory.lastProvider, "Kiv");
    EXPECT_EQ(factory.lastAuthorizator, nullptr);

    // A guarded service's factory builds its security stub on the installed policy.
    EXPECT_EQ(ServiceManager::SetAuthorizator(&policy), nullptr);
    EXPECT_EQ(EchoTen("Kiv", proxyFactory), 110);
    EXPECT_EQ(factory.lastAuthorizator, &policy);
}

TEST_F(ServiceManagerTest, UnknownProviderOrServiceGivesNull)
{
    EchoServiceFactory factory(0);
    ServiceManager::PublishService("Kiv", "Test.IEchoService", factory);
    EchoProxyFactory otherService("Test.IOtherService");

    EXPECT_EQ(EchoTen("Other", proxyFactory), -1);
    EXPECT_EQ(EchoTen("", proxyFactory), -1);
    EXPECT_EQ(EchoTen("Kiv", otherService), -1);
}

TEST_F(ServiceManagerTest, SameServiceUnderTwoProvidersStaysApartAndRepublishingReplaces)
{
    EchoServiceFactory first(1), second(2), third(3);
    ServiceManager::PublishService("ProcessA", "Test.IEchoService", first);
    ServiceManager::PublishService("ProcessB", "Test.IEchoService", second);
    EXPECT_EQ(EchoTen("ProcessA", proxyFactory), 11);
    EXPECT_EQ(EchoTen("ProcessB", proxyFactory), 12);

    ServiceManager::PublishService("ProcessA", "Test.IEchoService", third);
    ServiceManager::PublishService("ProcessA", "Test.IEchoService", third);
    EXPECT_EQ(EchoTen("ProcessA", proxyFactory), 13);
    EXPECT_EQ(EchoTen("ProcessB", proxyFactory), 12);
}

TEST_F(ServiceManagerTest, ResetWithdrawsPublicationsAndAuthorizator)
{
    EchoServiceFactory factory(0);
    RefuseAll policy;
    ServiceManager::PublishService("Kiv", "Test.IEchoService", factory);
    ServiceManager::SetAuthorizator(&policy);

    ServiceManager::Reset();
    EXPECT_EQ(EchoTen("Kiv", proxyFactory), -1);
    EXPECT_EQ(ServiceManager::SetAuthorizator(nullptr), nullptr);
}

TEST_F(ServiceManagerTest, NullOrEmptyNamesAreRefused)
{
    EchoServiceFactory factory(0);
    EXPECT_THROW(ServiceManager::PublishService(nullptr, "Test.IEchoService", factory),
                 Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::PublishService("Kiv", nullptr, factory), Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::PublishService("Kiv", "", factory), Kiv::ArgumentException);
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
