// The ring buffer of the non-blocking path: order across the wrap, and a refused item left to its owner.

#include <Nm/Internal/NonBlockingNotificationSending/RingBuffer.h>

#include <gtest/gtest.h>

#include <memory>

using Kiv::System::Nm::Internal::NonBlockingNotificationSending::RingBuffer;

TEST(RingBufferTest, ItemsComeOutInOrderAcrossTheWrapAndARefusedItemKeepsItsContent)
{
    RingBuffer<std::unique_ptr<int>> ring(3);
    std::unique_ptr<int> taken;
    int out = 0;
    for (int in = 0; in < 10; ++in)  // fill up, be refused, take two: the indices wrap several times
    {
        auto item = std::make_unique<int>(in);
        while (!ring.TryPush(item))
        {
            ASSERT_EQ(*item, in);
            EXPECT_EQ(ring.GetCount(), 3u);
            for (int i = 0; i < 2 && ring.TryPop(taken); ++i)
            {
                EXPECT_EQ(*taken, out++);
            }
        }
    }
    while (ring.TryPop(taken))
    {
        EXPECT_EQ(*taken, out++);
    }
    EXPECT_EQ(out, 10);
    RingBuffer<std::unique_ptr<int>> none(0);
    auto item = std::make_unique<int>(1);
    EXPECT_FALSE(none.TryPush(item));
    EXPECT_EQ(*item, 1);
}
