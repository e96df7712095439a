#include <Nm/Internal/NonBlockingNotificationSending/RingBuffer.h>

#include <gtest/gtest.h>

#include <memory>

using namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending;

namespace
{
using Item = std::unique_ptr<int>;

TEST(RingBufferTest, IndicesWrapWhileOrderAndCountHoldAndARefusedItemKeepsItsContent)
{
    RingBuffer<Item> ring(3);
    int in = 0;
    int out = 0;
    while (out < 10)  // two in, one out: the indices wrap several times
    {
        for (int i = 0; i < 2 && in < 10; ++i)
        {
            Item item = std::make_unique<int>(in);
            if (ring.TryPush(item))
            {
                EXPECT_EQ(item, nullptr);
                ++in;
            }
            else
            {
                EXPECT_EQ(ring.GetCount(), 3u);
                EXPECT_EQ(*item, in);
            }
        }
        Item taken;
        ASSERT_TRUE(ring.TryPop(taken));
        EXPECT_EQ(*taken, out++);
        EXPECT_EQ(ring.GetCount(), static_cast<std::uint32_t>(in - out));
    }
    RingBuffer<Item> none(0);
    Item item = std::make_unique<int>(1);
    EXPECT_FALSE(none.TryPush(item));
    EXPECT_EQ(*item, 1);
}
}  // namespace
