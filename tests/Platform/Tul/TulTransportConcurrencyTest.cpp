#include "Platform/Tul/Support/EchoService.h"
#include "Support/WaitFor.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

using namespace Kiv::System::Tul;
using namespace std::chrono_literals;

namespace
{
/// Runs `work` on `count` threads, with the thread's number, and waits for them.
void RunThreads(int count, const std::function<void(int)>& work)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t)
    {
        threads.emplace_back(work, t);
    }
    for (auto& thread : threads)
    {
        thread.join();
    }
}

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

TEST(ServiceManagerConcurrencyTest, PublishGetAndResetFromManyThreads)
{
    ServiceManager::Reset();
    Echo::EchoServiceFactory factories[2];
    std::atomic<int> found{0}, wrong{0};
    RunThreads(4,
               [&](int t)
               {
                   for (int i = 0; i < 2000; ++i)
                   {
                       if (t == 0 && i % 100 == 99)
                       {
                           ServiceManager::Reset();
                       }
                       else if (t < 2)
                       {
                           ServiceManager::PublishService("Kiv", Echo::serviceName, factories[i % 2]);
                       }
                       if (const auto echo = Echo::GetEcho("Kiv"); echo != nullptr)
                       {
                           (echo->Echo("x") == "x" ? found : wrong)++;
                       }
                   }
               });
    ServiceManager::Reset();
    EXPECT_GT(found.load(), 0);
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(TulTransportConcurrencyTest, ThreadsShareOneConnectionAndCallBackThroughAnother)
{
    std::atomic<int> wrong{0};
    RunThreads(4,
               [&wrong](int t)
               {
                   const auto echo = Echo::GetEcho("P1");
                   const auto base = static_cast<std::uint32_t>(t) * 1000;
                   for (std::uint32_t i = 0; echo != nullptr && i < 100; ++i)
                   {
                       wrong += echo->Add(i, base) != i + base ? 1 : 0;
                       const Kiv::String text = "thread " + std::to_string(t);
                       wrong += i % 10 == 0 && echo->CallBack("P2", text) != text ? 1 : 0;
                   }
                   wrong += echo == nullptr ? 1 : 0;
               });
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(TulTransportConcurrencyTest, ShutdownEndsRunningCallsWithItsReasonAndANewSetupServes)
{
    std::atomic<int> calling{0}, failed{0};
    std::thread shutdown(
        [&]
        {
            EXPECT_TRUE(Kiv::Testing::WaitFor([&] { return calling == 3; }, 60s));
            ServiceManager::Shutdown();  // also when not all are calling, so that the test ends
        });
    RunThreads(3,
               [&](int t)
               {
                   const std::string provider = t == 2 ? "P2" : "P1";
                   const auto echo = Echo::GetEcho(provider);
                   try
                   {
                       for (bool first = true; echo != nullptr; first = false)
                       {
                           echo->Echo("busy");
                           calling += first ? 1 : 0;
                       }
                   }
                   catch (const Kiv::CommunicationException& e)
                   {
                       EXPECT_EQ(e.GetMessage(), "Connection to provider '" + provider +
                                                     "' is lost: the service manager was shut down");
                       ++failed;
                   }
               });
    shutdown.join();
    EXPECT_EQ(failed.load(), 3);

    Publish();
    EXPECT_EQ(Echo::GetEcho("P2")->Echo("again"), "again");
}

TEST_F(TulTransportConcurrencyTest, AServiceThatItsProviderPublishesAMomentLaterIsFoundAndAMissingOneIsNot)
{
    Echo::EchoProxyFactory later("Test.ILater"), never("Test.INever");
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
