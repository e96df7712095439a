#include <Nm/Internal/NotificationBroker/IdGenerator.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>

#include <Kiv/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NotificationBroker;
using ::testing::ElementsAre;
using ::testing::ThrowsMessage;

namespace
{
NotificationNameId Id(std::uint32_t raw)
{
    return NotificationNameId(raw);
}
}  // namespace

TEST(NotificationNameRepositoryTest, AddingADeepNameMakesItsAncestorsFirst)
{
    NotificationNameRepository names;
    EXPECT_EQ(names.Add("A.B.C"), Id(3));
    EXPECT_EQ(names.GetId("A"), Id(1));
    EXPECT_EQ(names.GetId("A.B"), Id(2));
    EXPECT_TRUE(names.Contains("A.B"));
    EXPECT_TRUE(names.Contains(Id(2)));
    EXPECT_EQ(names.GetFullName(Id(3)), "A.B.C");
    EXPECT_THAT(names.GetMatchingIds(Id(3)), ElementsAre(Id(1), Id(2), Id(3)));
    EXPECT_TRUE(names.HasChildren(Id(1)));
    EXPECT_FALSE(names.HasParent(Id(1)));
    EXPECT_TRUE(names.HasParent(Id(3)));
}

TEST(NotificationNameRepositoryTest, DuplicatesAreRefusedByAddAndFoundByAddOrGetId)
{
    NotificationNameRepository names;
    names.Add("A.B");
    EXPECT_THAT([&] { names.Add("A"); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "NotificationNameRepository: Tried to add duplicate notification name: A"));
    EXPECT_EQ(names.AddOrGetId("A"), Id(1));
    // No id was used up by the refusal or the look-up.
    EXPECT_EQ(names.Add("X"), Id(3));
}

TEST(NotificationNameRepositoryTest, EmptyTokensFromDoubledLeadingAndTrailingDots)
{
    NotificationNameRepository names;
    EXPECT_EQ(names.Add("A..B"), Id(3));
    EXPECT_TRUE(names.Contains("A."));
    EXPECT_EQ(names.GetFullName(names.GetId("A.")), "A.");
    EXPECT_EQ(names.GetFullName(Id(3)), "A..B");

    const NotificationNameId leading = names.Add(".A");
    EXPECT_FALSE(names.HasParent(leading));
    EXPECT_EQ(names.GetFullName(leading), "A");
    EXPECT_NE(leading, names.GetId("A"));

    const NotificationNameId empty = names.Add("");
    EXPECT_EQ(names.GetFullName(empty), "");
    EXPECT_FALSE(names.HasParent(empty));
}

TEST(NotificationNameRepositoryTest, UnknownIdsAndNamesRaiseTheHookTexts)
{
    NotificationNameRepository names;
    names.Add("A.B");
    EXPECT_THAT([&] { names.GetMatchingIds(Id(9)); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "NotificationNameRepository: Repository does not contain id=9"));
    EXPECT_THAT([&] { names.GetId("Q"); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "NotificationNameRepository: tried to query unknown notification name: Q"));
    EXPECT_THAT([&] { names.Remove(Id(1)); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "NotificationNameRepository: Tried to remove id=1, but it has children!"));
    names.Remove(Id(2));
    EXPECT_FALSE(names.HasChildren(Id(1)));
    EXPECT_THAT([&] { names.Remove(Id(2)); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "NotificationNameRepository: Repository does not contain id=2"));
}

TEST(IdGeneratorTest, StartsAtOneAndStaysAtZeroOnceWrapped)
{
    IdGenerator<PayloadTypeId> generator;
    EXPECT_EQ(generator.Next(), PayloadTypeId(1));
    for (int i = 2; i <= 65535; ++i)
    {
        generator.Next();
    }
    EXPECT_EQ(generator.Next(), PayloadTypeId(0));
    EXPECT_EQ(generator.Next(), PayloadTypeId(0));
}
