#include <Nm/Internal/ThreadSafeQueue.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using Kiv::System::Nm::Internal::ThreadSafeQueue;

namespace
{
template <class Predicate>
bool WaitFor(Predicate predicate, std::chrono::seconds limit = std::chrono::seconds(30))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!predicate())
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}
}  // namespace

TEST(ThreadSafeQueueConcurrencyTest, TryPushRefusesAtCapacityAndNeverWaits)
{
    ThreadSafeQueue<int> queue(2);
    EXPECT_TRUE(queue.TryPush(std::make_shared<int>(1)));
    EXPECT_TRUE(queue.TryPush(std::make_shared<int>(2)));
    EXPECT_FALSE(queue.TryPush(std::make_shared<int>(3)));
    EXPECT_EQ(*queue.Pop(), 1);
    EXPECT_TRUE(queue.TryPush(std::make_shared<int>(4)));
    EXPECT_EQ(*queue.Pop(), 2);
    EXPECT_EQ(*queue.Pop(), 4);

    ThreadSafeQueue<int> closed(0);
    EXPECT_FALSE(closed.TryPush(std::make_shared<int>(1)));
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
        const int producer = value / PerProducer;
        EXPECT_GT(value % PerProducer, last[producer]);
        last[producer] = value % PerProducer;
    }
    for (auto& t : producers)
    {
        t.join();
    }
    EXPECT_EQ(last[0], PerProducer - 1);
    EXPECT_EQ(last[1], PerProducer - 1);
}

TEST(ThreadSafeQueueConcurrencyTest, PushOnAFullQueueWaitsUntilTheConsumerMakesRoom)
{
    ThreadSafeQueue<int> queue(1);
    ASSERT_TRUE(queue.TryPush(std::make_shared<int>(1)));
    std::atomic<bool> pushed{false};
    std::thread stopper(
        [&]
        {
            queue.Push(nullptr);
            pushed = true;
        });
    // The marker cannot get in while the queue is full; once the element is taken it must.
    EXPECT_EQ(*queue.Pop(), 1);
    EXPECT_TRUE(WaitFor([&] { return pushed.load(); }));
    EXPECT_EQ(queue.Pop(), nullptr);
    stopper.join();
}
