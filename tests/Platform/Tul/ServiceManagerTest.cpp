#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulAuthorizator.h>
#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <memory>
#include <thread>

using namespace Kiv::System::Tul;

namespace
{
class IEchoService : public ITulService
{
public:
    virtual int Echo(int value) = 0;
};

class EchoServiceImpl : public IEchoService
{
public:
    explicit EchoServiceImpl(int offset) : offset(offset) {}
    int Echo(int value) override { return value + offset; }

private:
    int offset;
};

// A factory as a service's own would be: it makes a plain object or, for a guarded service, one that
// remembers what it was made with.
class EchoServiceFactory : public ITulServiceFactory
{
public:
    EchoServiceFactory(int offset, bool guarded) : offset(offset), guarded(guarded) {}

    bool GetUsesSecurityStub() const override { return guarded; }
    const Kiv::String& GetServiceProviderName() const override { return providerName; }
    ITulService* CreateServiceImpl(const char* provider, ITulAuthorizator* authorizator) override
    {
        lastProvider = provider;
        lastAuthorizator = authorizator;
        return new EchoServiceImpl(offset);
    }
    ITulServiceStub* CreateServiceStub(const char*, ITulAuthorizator*) override { return nullptr; }

    Kiv::String lastProvider;
    ITulAuthorizator* lastAuthorizator = nullptr;

private:
    Kiv::String providerName = "Kiv";
    int offset;
    bool guarded;
};

class EchoProxyFactory : public ITulServiceProxyFactory
{
public:
    explicit EchoProxyFactory(const char* serviceName = "Test.IEchoService") : serviceName(serviceName) {}
    const char* GetServiceName() const override { return serviceName; }
    const char* GetServiceProviderName() const override { return "Kiv"; }
    ITulServiceProxy* CreateServiceProxy(unsigned short, unsigned short, TulClient&) override
    {
        ADD_FAILURE() << "an in-process service needs no proxy";
        return nullptr;
    }

private:
    const char* serviceName;
};

class RefuseAll : public ITulAuthorizator
{
public:
    bool IsAuthorized(const char*, const char*, const char*, const TulCallerIdentity&) override
    {
        return false;
    }
};

int EchoThrough(const char* provider, ITulServiceProxyFactory& proxyFactory, int value)
{
    std::unique_ptr<ITulService> service(ServiceManager::GetService(provider, proxyFactory));
    if (service == nullptr)
    {
        return -1;
    }
    auto* echo = dynamic_cast<IEchoService*>(service.get());
    return echo != nullptr ? echo->Echo(value) : -2;
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
    EchoServiceFactory factory(100, false);
    ServiceManager::PublishService("Kiv", "Test.IEchoService", factory);

    std::unique_ptr<ITulService> first(ServiceManager::GetService("Kiv", proxyFactory));
    std::unique_ptr<ITulService> second(ServiceManager::GetService("Kiv", proxyFactory));
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(dynamic_cast<IEchoService&>(*first).Echo(1), 101);
    EXPECT_EQ(factory.lastProvider, "Kiv");
}

TEST_F(ServiceManagerTest, UnknownProviderOrServiceGivesNull)
{
    EchoServiceFactory factory(0, false);
    ServiceManager::PublishService("Kiv", "Test.IEchoService", factory);
    EchoProxyFactory otherService("Test.IOtherService");

    EXPECT_EQ(ServiceManager::GetService("Other", proxyFactory), nullptr);
    EXPECT_EQ(ServiceManager::GetService("Kiv", otherService), nullptr);
    EXPECT_EQ(ServiceManager::GetService("", proxyFactory), nullptr);
}

TEST_F(ServiceManagerTest, SameServiceUnderTwoProvidersStaysApartAndRepublishingReplaces)
{
    EchoServiceFactory first(1, false), second(2, false), third(3, false);
    ServiceManager::PublishService("ProcessA", "Test.IEchoService", first);
    ServiceManager::PublishService("ProcessB", "Test.IEchoService", second);
    EXPECT_EQ(EchoThrough("ProcessA", proxyFactory, 10), 11);
    EXPECT_EQ(EchoThrough("ProcessB", proxyFactory, 10), 12);

    ServiceManager::PublishService("ProcessA", "Test.IEchoService", third);
    EXPECT_EQ(EchoThrough("ProcessA", proxyFactory, 10), 13);
    ServiceManager::PublishService("ProcessA", "Test.IEchoService", third);
    EXPECT_EQ(EchoThrough("ProcessA", proxyFactory, 10), 13);
}

TEST_F(ServiceManagerTest, ResetWithdrawsPublicationsAndAuthorizator)
{
    EchoServiceFactory factory(0, true);
    RefuseAll policy;
    ServiceManager::PublishService("Kiv", "Test.IEchoService", factory);
    EXPECT_EQ(ServiceManager::SetAuthorizator(&policy), nullptr);

    ServiceManager::Reset();
    EXPECT_EQ(ServiceManager::GetService("Kiv", proxyFactory), nullptr);
    EXPECT_EQ(ServiceManager::SetAuthorizator(nullptr), nullptr);
}

TEST_F(ServiceManagerTest, FactoryGetsPublishedProviderNameAndInstalledAuthorizator)
{
    EchoServiceFactory guarded(0, true);
    RefuseAll policy;
    ServiceManager::PublishService("Kiv", "Test.IEchoService", guarded);

    EXPECT_EQ(EchoThrough("Kiv", proxyFactory, 5), 5);
    EXPECT_EQ(guarded.lastAuthorizator, nullptr);
    ServiceManager::SetAuthorizator(&policy);
    EXPECT_EQ(EchoThrough("Kiv", proxyFactory, 5), 5);
    EXPECT_EQ(guarded.lastAuthorizator, &policy);
    EXPECT_EQ(guarded.lastProvider, "Kiv");
}

TEST_F(ServiceManagerTest, NullOrEmptyNamesAreRefused)
{
    EchoServiceFactory factory(0, false);
    EXPECT_THROW(ServiceManager::PublishService(nullptr, "Test.IEchoService", factory),
                 Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::PublishService("Kiv", nullptr, factory), Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::PublishService("Kiv", "", factory), Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::GetService(nullptr, proxyFactory), Kiv::ArgumentException);
}

TEST(TulCallerIdentityTest, InProcessCallerIsThisProcessAndScopesNestPerThread)
{
    const TulCallerIdentity self = TulCallerIdentity::GetProcessIdentity();
    EXPECT_EQ(self.pid, getpid());
    EXPECT_EQ(self.uid, geteuid());
    EXPECT_EQ(self.gid, getegid());
    EXPECT_EQ(TulCallerIdentity::GetCurrent(), self);

    const TulCallerIdentity outer{1001, 1002, 1003};
    const TulCallerIdentity inner{2001, 2002, 2003};
    {
        TulCallerIdentity::Scope outerScope(outer);
        EXPECT_EQ(TulCallerIdentity::GetCurrent(), outer);
        {
            TulCallerIdentity::Scope innerScope(inner);
            EXPECT_EQ(TulCallerIdentity::GetCurrent(), inner);
        }
        EXPECT_EQ(TulCallerIdentity::GetCurrent(), outer);
        TulCallerIdentity seenByOtherThread;
        std::thread([&seenByOtherThread] { seenByOtherThread = TulCallerIdentity::GetCurrent(); }).join();
        EXPECT_EQ(seenByOtherThread, self);
    }
    EXPECT_EQ(TulCallerIdentity::GetCurrent(), self);
}
