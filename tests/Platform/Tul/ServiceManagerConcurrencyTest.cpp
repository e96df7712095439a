#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace Kiv::System::Tul;

namespace
{
class CountedService : public ITulService
{
public:
    explicit CountedService(int tag) : tag(tag) {}
    int tag;
};

class CountingFactory : public ITulServiceFactory
{
public:
    explicit CountingFactory(int tag) : tag(tag) {}
    bool GetUsesSecurityStub() const override { return false; }
    const Kiv::String& GetServiceProviderName() const override { return provider; }
    ITulService* CreateServiceImpl(const char*, ITulAuthorizator*) override
    {
        return new CountedService(tag);
    }
    ITulServiceStub* CreateServiceStub(const char*, ITulAuthorizator*) override { return nullptr; }

private:
    Kiv::String provider = "Kiv";
    int tag;
};

class NamesOnly : public ITulServiceProxyFactory
{
public:
    const char* GetServiceName() const override { return "Test.ICounted"; }
    const char* GetServiceProviderName() const override { return "Kiv"; }
    ITulServiceProxy* CreateServiceProxy(unsigned short, unsigned short, TulClient&) override
    {
        return nullptr;
    }
};
}  // namespace

TEST(ServiceManagerConcurrencyTest, PublishGetAndResetFromManyThreads)
{
    ServiceManager::Reset();
    CountingFactory factories[2] = {CountingFactory(1), CountingFactory(2)};
    NamesOnly names;
    std::atomic<int> found{0};
    std::atomic<int> wrong{0};

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                for (int i = 0; i < 2000; ++i)
                {
                    if (t == 0 && i % 100 == 99)
                    {
                        ServiceManager::Reset();
                    }
                    else if (t < 2)
                    {
                        ServiceManager::PublishService("Kiv", "Test.ICounted", factories[i % 2]);
                    }
                    std::unique_ptr<ITulService> service(ServiceManager::GetService("Kiv", names));
                    if (service != nullptr)
                    {
                        const int tag = static_cast<CountedService&>(*service).tag;
                        (tag == 1 || tag == 2 ? found : wrong)++;
                    }
                }
            });
    }
    for (auto& thread : threads)
    {
        thread.join();
    }
    ServiceManager::Reset();
    EXPECT_GT(found.load(), 0);
    EXPECT_EQ(wrong.load(), 0);
}
