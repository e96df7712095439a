// Batches to this process's dispatcher: through its service over a connection, nested in a subscriber,
// and what they allocate once matching has warmed. Each test runs in a process of its own.

#include <Nm/Internal/NotificationBroker/NotificationDispatcherManager.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>

#include <Support/CountingAllocator.h>
#include <Support/InProcessSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using namespace Kiv::Testing;
using Internal::NotificationDispatcher::NotificationDispatcher;
using Dispatchers = Internal::NotificationBroker::NotificationDispatcherManager;
using Services::Internal::NotificationBatch;

namespace
{
std::vector<std::string> calls;  // who was called for which notification id, in order

std::function<void(const Notification&)> Logging(const char* who)
{
    return [who](const Notification& n) { calls.push_back(who + std::to_string(n.GetId().GetValue())); };
}

void Add(NotificationBatch& batch, std::uint64_t id, std::uint32_t name, std::vector<std::uint32_t> ids)
{
    batch.Add(std::make_shared<Notification>(NotificationId(id), NotificationNameId(name),
                                             Kiv::DateTime::GetUtcNow(), Severity::Info,
                                             PayloadTypeId(StringPayload::GetPayloadTypeId()),
                                             StringPayload("text").GetAsRawPayloadType()),
              ids.data(), ids.size());
}

struct CountingSubscriber : INotificationSubscriber
{
    void Notify(const Notification&) override { ++count; }
    int count = 0;
};
}  // namespace

TEST(DispatchBatchTest, ThroughTheServiceEachGoesInOrderUnderItsIdsAndAFailedOneCostsOnlyItself)
{
    RecordingSubscriber onAB(Logging("AB")), onC(Logging("C"));
    RecordingSubscriber throwing([](const Notification& n)
                                 { Logging("X")(n), throw Kiv::Exception("broken"); });
    auto settings = Kiv::System::Tul::ServiceManager::GetSettings();
    settings.marshalLocalCalls = true;
    Kiv::System::Tul::ServiceManager::Configure(settings);
    InProcessSystem system;
    const std::uint32_t a = Register("A").GetValue(), ab = Register("A.B").GetValue(),
                        c = Register("C").GetValue(), x = Register("X").GetValue();
    for (auto [name, subscriber] : {std::pair("A.B", &onAB), {"C", &onC}, {"X", &throwing}})
    {
        InProcessSystem::Dispatcher().Subscribe(name, subscriber);
    }
    NotificationBatch batch;
    Add(batch, 1, ab, {a, ab});
    Add(batch, 2, c, {c});
    Add(batch, 3, 999, {x});  // reporting the subscriber's exception fails: no name 999
    Add(batch, 4, ab, {});
    Add(batch, 5, c, {ab, c});  // the ids decide, not the name inside
    const auto failures =
        Internal::NotificationBroker::NotificationDispatcherManager::GetNotificationDispatcherService(
            "ProcessA")
            ->DispatchBatch(batch);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].index, 2u);
    EXPECT_THAT(failures[0].message.GetChars(), ::testing::HasSubstr("999"));
    EXPECT_THAT(calls, ::testing::ElementsAre("AB1", "C2", "X3", "AB5", "C5"));
}

TEST(DispatchBatchTest, ADeliveryNestedInASubscriberLeavesTheOuterOnesSubscribersToIt)
{
    NotificationBatch nested;
    RecordingSubscriber first(
        [&](const Notification& n)
        {
            Logging("first")(n);
            if (n.GetId() == NotificationId(1))
            {
                NotificationDispatcher::DispatchBatchToProcessDispatcher(nested);
            }
        });
    RecordingSubscriber second(Logging("second"));
    std::vector<RecordingSubscriber> inner(20);  // more than the outer delivery left room for
    InProcessSystem system;
    const std::uint32_t ab = Register("A.B").GetValue();
    InProcessSystem::Dispatcher().Subscribe("A.B", &first);
    InProcessSystem::Dispatcher().Subscribe("A.B", &second);
    for (auto& subscriber : inner)
    {
        InProcessSystem::Dispatcher().Subscribe("N", &subscriber);
    }
    const std::uint32_t n = InProcessSystem::Dispatcher().GetNotificationNameId("N").GetValue();
    Add(nested, 9, n, {n});
    NotificationBatch outer;
    Add(outer, 1, ab, {ab});
    Add(outer, 2, ab, {ab});
    EXPECT_TRUE(NotificationDispatcher::DispatchBatchToProcessDispatcher(outer).empty());
    EXPECT_THAT(calls, ::testing::ElementsAre("first1", "second1", "first2", "second2"));
    for (auto& subscriber : inner)
    {
        EXPECT_EQ(subscriber.Count(), 1u);
    }
}

TEST(DispatchBatchTest, OnceMatchingHasWarmedABatchOrOneNotificationAllocatesNothing)
{
    CountingSubscriber one, two;
    InProcessSystem system;
    const std::uint32_t ab = Register("A.B").GetValue();
    const std::uint32_t a = InProcessSystem::Dispatcher().Subscribe("A", &two).GetValue();
    InProcessSystem::Dispatcher().Subscribe("A.B", &one);
    InProcessSystem::Dispatcher().Subscribe("A.B", &two);
    NotificationBatch batch;
    for (std::uint64_t id = 1; id <= 50; ++id)
    {
        Add(batch, id, ab, {a, ab});
    }
    NotificationDispatcher::DispatchBatchToProcessDispatcher(batch);
    const std::vector<std::uint32_t> ids{a, ab};
    AllocationCounter counter;
    EXPECT_TRUE(NotificationDispatcher::DispatchBatchToProcessDispatcher(batch).empty());
    NotificationDispatcher::DispatchToProcessDispatcher(*batch.notifications[0], ids);  // as the service does
    EXPECT_EQ(counter.Get(), 0u);
    EXPECT_EQ(one.count + two.count, 202);
}
