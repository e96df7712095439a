#include "Platform/Tul/Support/EchoService.h"
#include "Support/WaitFor.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

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
}  // namespace

TEST(ServiceManagerConcurrencyTest, PublishGetAndResetFromManyThreads)
{
    Kiv::System::Tul::Testing::UseNewTransport();
    Echo::EchoServiceFactory factories[2];
    std::atomic<int> found{0};
    RunThreads(4,
               [&](int t)
               {
                   for (int i = 0; i < 2000; ++i)
                   {
                       if (t == 0 && i % 100 == 99)
                       {
                           Kiv::System::Tul::Testing::UseNewTransport();
                       }
                       else if (t < 2)
                       {
                           ServiceManager::PublishService("Kiv", Echo::serviceName, factories[i % 2]);
                       }
                       const auto echo = Echo::GetEcho("Kiv");
                       found += echo != nullptr && echo->Echo("x") == "x" ? 1 : 0;
                   }
               });
    Kiv::System::Tul::Testing::UseNewTransport();
    EXPECT_GT(found.load(), 0);
}

TEST(TulTransportConcurrencyTest, ThreadsShareAConnectionAndCallBackThroughAnotherUntilShutdownEndsTheirCalls)
{
    // Two providers of this process, called through their endpoints and server threads.
    const TulSettings original = ServiceManager::GetSettings();
    TulSettings settings = original;
    settings.marshalLocalCalls = true;
    settings.connectWait = 10s;
    settings.callTimeLimit = 60s;  // generous: tsan on a loaded machine is slow
    ServiceManager::Configure(settings);
    Echo::EchoServiceFactory factory;
    ServiceManager::PublishService("P1", Echo::serviceName, factory);
    ServiceManager::PublishService("P2", Echo::serviceName, factory);
    std::atomic<int> wrong{0}, warmedUp{0}, ended{0};
    std::thread shutdown(
        [&]
        {
            EXPECT_TRUE(Kiv::Testing::WaitFor([&] { return warmedUp == 4; }, 60s));
            ServiceManager::Shutdown();  // also when not all got there, so that the test ends
        });
    RunThreads(4,
               [&](int t)
               {
                   const auto echo = Echo::GetEcho("P1");
                   const auto base = static_cast<std::uint32_t>(t) * 1000;
                   const Kiv::String text = "thread " + std::to_string(t);
                   try
                   {
                       // Calls back through P2, whose connection they don't share, only before the shutdown
                       // can come.
                       for (std::uint32_t i = 0; echo != nullptr; ++i)
                       {
                           wrong += echo->Add(i, base) != i + base ? 1 : 0;
                           wrong += i < 100 && i % 10 == 0 && echo->CallBack("P2", text) != text;
                           warmedUp += i == 100 ? 1 : 0;
                       }
                   }
                   catch (const Kiv::CommunicationException& e)
                   {
                       EXPECT_EQ(e.GetMessage(),
                                 "Connection to provider 'P1' is lost: the service manager was shut down");
                       ++ended;
                   }
               });
    shutdown.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(ended.load(), 4);

    ServiceManager::PublishService("P2", Echo::serviceName, factory);
    EXPECT_EQ(Echo::GetEcho("P2")->Echo("again"), "again");
    Kiv::System::Tul::Testing::UseNewTransport();
    ServiceManager::Configure(original);
}

TEST(TulTransportConcurrencyTest, AServiceThatItsProviderPublishesAMomentLaterIsFoundAndAMissingOneIsNot)
{
    const TulSettings original = ServiceManager::GetSettings();
    TulSettings settings = original;
    settings.marshalLocalCalls = true;
    settings.connectWait = 10s;
    ServiceManager::Configure(settings);
    Echo::EchoServiceFactory factory;
    // The provider's endpoint is up, as in a process that publishes its services one after another.
    ServiceManager::PublishService("P", Echo::serviceName, factory);
    std::thread publisher(
        [&]
        {
            std::this_thread::sleep_for(100ms);  // the lookup below starts before the publication
            ServiceManager::PublishService("P", "Test.ILater", factory);
        });
    Echo::EchoProxyFactory later("Test.ILater");
    Echo::EchoProxyFactory never("Test.INever");
    std::unique_ptr<ITulService> found(ServiceManager::GetService("P", later));
    publisher.join();
    EXPECT_NE(found, nullptr);
    EXPECT_EQ(std::unique_ptr<ITulService>(ServiceManager::GetService("P", never)), nullptr);
    Kiv::System::Tul::Testing::UseNewTransport();
    ServiceManager::Configure(original);
}

TEST(TulTransportConcurrencyTest, WorkLeftForAfterTheResponseRunsOnTheServingThreadOnceTheCallerHasItsAnswer)
{
    Kiv::System::Tul::Testing::UseNewTransport();
    const TulSettings original = ServiceManager::GetSettings();
    TulSettings settings = original;
    settings.marshalLocalCalls = true;
    settings.callTimeLimit = 60s;
    ServiceManager::Configure(settings);
    Echo::EchoServiceFactory factory;
    ServiceManager::PublishService("P", Echo::serviceName, factory);
    std::atomic<bool> answered{false}, sawAnswer{false}, ran{false};
    std::atomic<std::thread::id> ranOn{};
    Echo::afterResponse = [&]
    {
        // Were it run before the response went out, the caller would not get its answer and this waits
        // in vain.
        sawAnswer = Kiv::Testing::WaitFor([&] { return answered.load(); }, 30s);
        ranOn = std::this_thread::get_id();
        ran = true;
    };
    EXPECT_FALSE(CanDeferUntilResponded()) << "a thread that serves no call takes no work";
    EXPECT_FALSE(DeferUntilResponded([](void*) noexcept {}, nullptr));
    const auto echo = Echo::GetEcho("P");
    EXPECT_EQ(echo->Echo("after response"), "taken true, again false");
    answered = true;
    ASSERT_TRUE(Kiv::Testing::WaitFor([&] { return ran.load(); }, 60s));
    EXPECT_TRUE(sawAnswer.load());
    EXPECT_NE(ranOn.load(), std::this_thread::get_id());
    EXPECT_EQ(echo->Echo("x"), "x") << "the connection serves on";
    Kiv::System::Tul::Testing::UseNewTransport();
    Echo::afterResponse = nullptr;
    ServiceManager::Configure(original);
}
