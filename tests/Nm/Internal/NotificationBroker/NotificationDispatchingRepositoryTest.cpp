#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>

#include <Kiv/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::NotificationBroker::NotificationDispatchingRepository;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::ThrowsMessage;

namespace
{
const NotificationNameId A(1);
const NotificationNameId AB(2);
const NotificationNameId Other(3);
const NotificationDispatcherId First(1);
const NotificationDispatcherId Second(2);
}  // namespace

TEST(NotificationDispatchingRepositoryTest, MatchesAreOrderedByDispatcherWithNameIdsInTheGivenOrder)
{
    NotificationDispatchingRepository table;
    table.Add(AB, Second);
    table.Add(A, Second);
    table.Add(AB, First);
    EXPECT_THAT(table.GetMatches({A, AB}),
                ElementsAre(Pair(First, ElementsAre(AB)), Pair(Second, ElementsAre(A, AB))));
    EXPECT_THAT(table.GetMatches({}), IsEmpty());
    EXPECT_THAT(table.GetMatches({Other}), IsEmpty());
}

TEST(NotificationDispatchingRepositoryTest, DuplicatesAndUnknownRowsRaiseWithBothIds)
{
    NotificationDispatchingRepository table;
    table.Add(A, First);
    EXPECT_THAT([&] { table.Add(A, First); }, ThrowsMessage<Kiv::InvalidOperationException>(
                                                  "NotificationDispatchingRepository: Tried to add "
                                                  "duplicate: notificationNameId=1, dispatcherId=1"));
    EXPECT_THAT([&] { table.Remove(AB, Second); }, ThrowsMessage<Kiv::InvalidOperationException>(
                                                       "NotificationDispatchingRepository: Tried to remove "
                                                       "unknown: notificationNameId=2, dispatcherId=2"));
    table.Remove(A, First);
    EXPECT_FALSE(table.Contains(A));
}
