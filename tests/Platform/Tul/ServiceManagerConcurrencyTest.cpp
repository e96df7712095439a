#include "Platform/Tul/FakeServices.h"

#include <Kiv/System/Tul/ServiceManager.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace Kiv::System::Tul;

TEST(ServiceManagerConcurrencyTest, PublishGetAndResetFromManyThreads)
{
    ServiceManager::Reset();
    Fake::EchoServiceFactory factories[2] = {Fake::EchoServiceFactory(1), Fake::EchoServiceFactory(2)};
    Fake::EchoProxyFactory proxyFactory;
    std::atomic<int> found{0}, wrong{0};
    auto work = [&](int t)
    {
        for (int i = 0; i < 2000; ++i)
        {
            if (t == 0 && i % 100 == 99)
            {
                ServiceManager::Reset();
            }
            else if (t < 2)
            {
                ServiceManager::PublishService("Kiv", "Test.IEchoService", factories[i % 2]);
            }
            std::unique_ptr<ITulService> service(ServiceManager::GetService("Kiv", proxyFactory));
            if (service != nullptr)
            {
                const int answer = dynamic_cast<Fake::IEchoService&>(*service).Echo(0);
                (answer == 1 || answer == 2 ? found : wrong)++;
            }
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(work, t);
    }
    for (auto& thread : threads)
    {
        thread.join();
    }
    ServiceManager::Reset();
    EXPECT_GT(found.load(), 0);
    EXPECT_EQ(wrong.load(), 0);
}
