#include <Nm/Internal/ThreadSafeQueue.h>

#include <Support/WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using Kiv::System::Nm::Internal::ThreadSafeQueue;
using Kiv::Testing::WaitFor;

TEST(ThreadSafeQueueConcurrencyTest, TryPushRefusesAtCapacityWhilePushWaitsForRoom)
{
    ThreadSafeQueue<int> closed(0);
    EXPECT_FALSE(closed.TryPush(std::make_shared<int>(1)));

    ThreadSafeQueue<int> queue(2);
    EXPECT_TRUE(queue.TryPush(std::make_shared<int>(1)));
    EXPECT_TRUE(queue.TryPush(std::make_shared<int>(2)));
    EXPECT_FALSE(queue.TryPush(std::make_shared<int>(3)));
    std::atomic<bool> pushed{false};
    std::thread stopper(
        [&]
        {
            queue.Push(nullptr);
            pushed = true;
        });
    EXPECT_EQ(*queue.Pop(), 1);
    EXPECT_TRUE(WaitFor([&] { return pushed.load(); }));
    EXPECT_EQ(*queue.Pop(), 2);
    EXPECT_EQ(queue.Pop(), nullptr);
    stopper.join();
}

TEST(ThreadSafeQueueConcurrencyTest, PopWaitsForAProducerAndKeepsOrderPerProducer)
{
    ThreadSafeQueue<int> queue(8);
    constexpr int PerProducer = 2000;
    std::vector<std::thread> producers;
    for (int p = 0; p < 2; ++p)
    {
        producers.emplace_back(
            [&queue, p]
            {
                for (int i = 0; i < PerProducer; ++i)
                {
                    auto element = std::make_shared<int>(p * PerProducer + i);
                    while (!queue.TryPush(element))
                    {
                        std::this_thread::yield();
                    }
                }
            });
    }
    int last[2] = {-1, -1};
    for (int n = 0; n < 2 * PerProducer; ++n)
    {
        const int value = *queue.Pop();
        EXPECT_EQ(value % PerProducer, ++last[value / PerProducer]) << "nothing lost, nothing reordered";
    }
    for (auto& t : producers)
    {
        t.join();
    }
}
