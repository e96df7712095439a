#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

using namespace Kiv::System::Tul;
using namespace std::chrono_literals;

namespace
{
/// Two providers of this process, called through their endpoints and server threads.
class TulTransportConcurrencyTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ServiceManager::Reset();
        TulSettings settings = original;
        settings.marshalLocalCalls = true;
        settings.connectWait = 10s;
        settings.callTimeLimit = 60s;  // generous: tsan on a loaded machine is slow
        ServiceManager::Configure(settings);
        Publish();
    }
    void TearDown() override
    {
        ServiceManager::Reset();
        ServiceManager::Configure(original);
    }

    void Publish()
    {
        ServiceManager::PublishService("P1", Echo::serviceName, factory);
        ServiceManager::PublishService("P2", Echo::serviceName, factory);
    }

    const TulSettings original = ServiceManager::GetSettings();
    Echo::EchoServiceFactory factory;
};
}  // namespace

TEST_F(TulTransportConcurrencyTest, ThreadsShareOneConnectionAndCallBackThroughAnother)
{
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (std::uint32_t t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&wrong, t]
            {
                const auto echo = Echo::GetEcho("P1");
                for (std::uint32_t i = 0; echo != nullptr && i < 100; ++i)
                {
                    wrong += echo->Add(i, t * 1000) != i + t * 1000 ? 1 : 0;
                    if (i % 10 == 0)
                    {
                        const Kiv::String text = "thread " + std::to_string(t);
                        wrong += echo->CallBack("P2", text) != text ? 1 : 0;
                    }
                }
                wrong += echo == nullptr ? 1 : 0;
            });
    }
    for (auto& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(TulTransportConcurrencyTest, ShutdownEndsRunningCallsAndANewSetupServes)
{
    std::mutex mutex;
    std::condition_variable changed;
    int calling = 0;
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (const char* provider : {"P1", "P1", "P2"})
    {
        threads.emplace_back(
            [&, provider]
            {
                const auto echo = Echo::GetEcho(provider);
                try
                {
                    for (bool first = true; echo != nullptr; first = false)
                    {
                        echo->Echo("busy");
                        if (first)
                        {
                            std::lock_guard<std::mutex> lock(mutex);
                            ++calling;
                            changed.notify_all();
                        }
                    }
                }
                catch (const Kiv::CommunicationException&)
                {
                    ++failed;
                }
            });
    }
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, 60s, [&] { return calling == 3; }));
    }
    ServiceManager::Shutdown();
    for (auto& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(failed.load(), 3);

    Publish();
    EXPECT_EQ(Echo::GetEcho("P2")->Echo("again"), "again");
}

TEST_F(TulTransportConcurrencyTest, AServiceThatItsProviderPublishesAMomentLaterIsFoundAndAMissingOneIsNot)
{
    struct Later : Echo::EchoProxyFactory
    {
        const char* GetServiceName() const override { return "Test.ILater"; }
    } later;
    struct Never : Echo::EchoProxyFactory
    {
        const char* GetServiceName() const override { return "Test.INever"; }
    } never;
    // The provider's endpoint is up, as in a process that publishes its services one after another.
    std::thread publisher(
        [this]
        {
            std::this_thread::sleep_for(100ms);
            ServiceManager::PublishService("P1", "Test.ILater", factory);
        });
    std::unique_ptr<ITulService> found(ServiceManager::GetService("P1", later));
    publisher.join();
    EXPECT_NE(found, nullptr);
    EXPECT_EQ(ServiceManager::GetService("P1", never), nullptr);
}
