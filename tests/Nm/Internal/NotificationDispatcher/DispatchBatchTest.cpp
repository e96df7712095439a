// Batches to this process's dispatcher: through its service over a real connection (order, ids, the
// failure of one notification), nested in a subscriber, and the heap they cost once matching has warmed.
// Subscribers are declared before the system, so that the dispatcher is gone before them.

#include <Nm/Internal/NotificationBroker/NotificationDispatcherManager.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>

#include <Support/CountingAllocator.h>
#include <Support/InProcessSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

using namespace Kiv::System::Nm;
using namespace Kiv::Testing;
using Internal::NotificationBroker::NotificationDispatcherManager;
using Services::Internal::NotificationBatch;
using ::testing::ElementsAre;

namespace
{
/// Who was called for which notification id, in order.
struct CallLog
{
    std::mutex mutex;
    std::vector<std::string> calls;

    std::function<void(const Notification&)> Of(const char* who)
    {
        return [this, who](const Notification& n)
        {
            std::lock_guard<std::mutex> lock(mutex);
            calls.push_back(who + std::to_string(n.GetId().GetValue()));
        };
    }
};

void Add(NotificationBatch& batch, std::uint64_t id, NotificationNameId name, std::vector<std::uint32_t> ids)
{
    batch.Add(std::make_shared<Notification>(NotificationId(id), name, Kiv::DateTime::GetUtcNow(),
                                             Severity::Info, PayloadTypeId(StringPayload::GetPayloadTypeId()),
                                             StringPayload("text").GetAsRawPayloadType()),
              ids.data(), ids.size());
}

/// Calls to a service of this process go over a connection while it lives.
struct MarshalLocalCalls
{
    MarshalLocalCalls() { Set(true); }
    ~MarshalLocalCalls() { Set(false); }
    static void Set(bool marshal)
    {
        auto settings = Kiv::System::Tul::ServiceManager::GetSettings();
        settings.marshalLocalCalls = marshal;
        Kiv::System::Tul::Testing::UseNewTransport(settings);
    }
};

/// Counts, and allocates nothing doing so.
struct CountingSubscriber : INotificationSubscriber
{
    void Notify(const Notification&) override { ++calls; }
    int calls = 0;
};
}  // namespace

TEST(DispatchBatchTest, ADeliveryNestedInASubscriberLeavesTheOuterOnesSubscribersToIt)
{
    CallLog log;
    std::vector<std::unique_ptr<RecordingSubscriber>> inner;
    NotificationBatch nested;
    RecordingSubscriber first(
        [&](const Notification& n)
        {
            log.Of("first")(n);
            if (n.GetId() == NotificationId(1))
            {
                Internal::NotificationDispatcher::NotificationDispatcher::DispatchBatchToProcessDispatcher(
                    nested);
            }
        });
    RecordingSubscriber second(log.Of("second"));
    InProcessSystem system;
    auto& dispatcher = InProcessSystem::Dispatcher();
    const std::uint32_t ab = Register("A.B").GetValue();
    dispatcher.Subscribe("A.B", &first);
    dispatcher.Subscribe("A.B", &second);
    // Enough of them that the nested delivery outgrows what the outer one left.
    for (int index = 0; index < 20; ++index)
    {
        inner.push_back(std::make_unique<RecordingSubscriber>(log.Of("inner")));
        dispatcher.Subscribe("N", inner.back().get());
    }
    Add(nested, 9, dispatcher.GetNotificationNameId("N"), {dispatcher.GetNotificationNameId("N").GetValue()});
    NotificationBatch outer;
    Add(outer, 1, NotificationNameId(ab), {ab});
    Add(outer, 2, NotificationNameId(ab), {ab});
    EXPECT_TRUE(
        Internal::NotificationDispatcher::NotificationDispatcher::DispatchBatchToProcessDispatcher(outer)
            .empty());
    std::vector<std::string> expected{"first1"};
    expected.insert(expected.end(), 20, "inner9");
    expected.insert(expected.end(), {"second1", "first2", "second2"});
    EXPECT_EQ(log.calls, expected);
}

TEST(DispatchBatchTest, OnceMatchingHasWarmedABatchAllocatesNothing)
{
    CountingSubscriber one, two;
    InProcessSystem system;
    auto& dispatcher = InProcessSystem::Dispatcher();
    const std::uint32_t ab = Register("A.B").GetValue();
    dispatcher.Subscribe("A.B", &one);
    const std::uint32_t a = dispatcher.Subscribe("A", &two).GetValue();
    dispatcher.Subscribe("A.B", &two);
    NotificationBatch batch;
    for (std::uint64_t id = 1; id <= 50; ++id)
    {
        Add(batch, id, NotificationNameId(ab), {a, ab});
    }
    using Internal::NotificationDispatcher::NotificationDispatcher;
    NotificationDispatcher::DispatchBatchToProcessDispatcher(batch);
    {
        AllocationCounter counter;
        EXPECT_TRUE(NotificationDispatcher::DispatchBatchToProcessDispatcher(batch).empty());
        EXPECT_EQ(counter.Get(), 0u);
    }
    EXPECT_EQ(one.calls, 100);
    EXPECT_EQ(two.calls, 100);
}

TEST(DispatchBatchTest, ThroughTheServiceEachNotificationGoesInOrderAndAFailedOneCostsOnlyItself)
{
    CallLog log;
    RecordingSubscriber onAB(log.Of("AB")), onC(log.Of("C"));
    RecordingSubscriber throwing(
        [&](const Notification& n)
        {
            log.Of("X")(n);
            throw Kiv::Exception("broken part");
        });
    MarshalLocalCalls overAConnection;
    InProcessSystem system;
    auto& dispatcher = InProcessSystem::Dispatcher();
    const std::uint32_t a = Register("A").GetValue(), ab = Register("A.B").GetValue(),
                        c = Register("C").GetValue(), x = Register("X").GetValue();
    dispatcher.Subscribe("A.B", &onAB);
    dispatcher.Subscribe("C", &onC);
    dispatcher.Subscribe("X", &throwing);

    NotificationBatch batch;
    Add(batch, 1, NotificationNameId(ab), {a, ab});
    Add(batch, 2, NotificationNameId(c), {c});
    // The report of the subscriber's exception fails: the broker knows no name 999.
    Add(batch, 3, NotificationNameId(999), {x});
    Add(batch, 4, NotificationNameId(ab), {});
    Add(batch, 5, NotificationNameId(c), {ab, c});  // the ids decide, not the name inside
    const auto failures =
        NotificationDispatcherManager::GetNotificationDispatcherService("ProcessA")->DispatchBatch(batch);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].index, 2u);
    EXPECT_THAT(failures[0].message.GetChars(), ::testing::HasSubstr("999"));
    EXPECT_THAT(log.calls, ElementsAre("AB1", "C2", "X3", "AB5", "C5"));
}
