// The dispatcher's subscription table: who is subscribed to which name, in subscription order.

#include <Nm/Internal/NotificationDispatcher/NotificationSubscriptionRepository.h>

#include <Kiv/Exceptions.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::NotificationDispatcher::NotificationSubscriptionRepository;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using ::testing::ThrowsMessage;

namespace
{
// Only the addresses matter; the repository never calls a subscriber. Place them so that address order
// is the reverse of subscription order, which a sort on addresses alone would expose.
std::array<char, 4> storage;
auto* const A = reinterpret_cast<INotificationSubscriber*>(&storage[3]);
auto* const B = reinterpret_cast<INotificationSubscriber*>(&storage[2]);
auto* const C = reinterpret_cast<INotificationSubscriber*>(&storage[1]);
auto* const D = reinterpret_cast<INotificationSubscriber*>(&storage[0]);

const NotificationNameId One(1);
const NotificationNameId Two(2);
}  // namespace

TEST(NotificationSubscriptionRepositoryTest, SubscribersComeOnceInSubscriptionOrderAndAReplacementGoesLast)
{
    NotificationSubscriptionRepository repository;
    repository.AddSubscription(One, A);
    repository.AddSubscription(Two, C);
    repository.AddSubscription(One, B);
    repository.AddSubscription(Two, A);
    EXPECT_THAT(repository.GetSubscriberPointersFor({Two, One}), ElementsAre(A, C, B));

    repository.ReplaceSubscriber(A, D);
    EXPECT_THAT(repository.GetSubscriberPointersFor({One, Two}), ElementsAre(C, B, D));
    EXPECT_TRUE(repository.GetSubscribedNotificationNameIds(A).empty());
    EXPECT_THAT(repository.GetSubscribedNotificationNameIds(D), ::testing::UnorderedElementsAre(One, Two));
}

TEST(NotificationSubscriptionRepositoryTest, MisuseIsRefusedAndLeavesTheTableAlone)
{
    NotificationSubscriptionRepository repository;
    repository.AddSubscription(One, A);
    EXPECT_THAT(
        [&] { repository.AddSubscription(One, nullptr); },
        ThrowsMessage<Kiv::InvalidOperationException>("NotificationSubscriptionRepository: Tried to add "
                                                      "subscription to nullptr with notificationNameId=1"));
    EXPECT_THAT([&] { repository.AddSubscription(One, A); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    StartsWith("NotificationSubscriptionRepository: Tried to add duplicate subscription "
                               "(notificationNameId=1, subscriber=0x")));
    EXPECT_THAT([&] { repository.RemoveSubscription(Two, A); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    StartsWith("NotificationSubscriptionRepository: Tried to remove unknown "
                               "subsciption (notificationNameId=2, ")));
    // B subscribed after the refusals must still come right behind A.
    repository.AddSubscription(Two, B);
    repository.ReplaceSubscriber(C, D);
    EXPECT_THAT(repository.GetSubscriberPointersFor({One, Two}), ElementsAre(A, B));

    repository.RemoveSubscription(One, A);
    EXPECT_FALSE(repository.Contains(One));
    EXPECT_TRUE(repository.Contains(Two, B));
}
