#include <Nm/Internal/NotificationBroker/NotificationBrokerThread.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatcherRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>
#include <Nm/Notification.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>

#include <Support/WaitFor.h>

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NotificationBroker;
using Kiv::System::Commons::Logging::CapturingSink;
using Kiv::System::Nm::Internal::ThreadSafeQueue;
using Kiv::Testing::WaitFor;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace
{
using DispatchFunction = std::function<void(const Notification&, const std::vector<std::uint32_t>&)>;

/// A dispatcher service that hands each call to a function of the test.
class FakeDispatcher : public Services::Internal::INotificationDispatcherService
{
public:
    explicit FakeDispatcher(DispatchFunction dispatch) : dispatch(std::move(dispatch)) {}
    void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) override
    {
        dispatch(notification, nameIds);
    }
    /// Each notification as its own call; what one throws is its failure.
    std::vector<Services::Internal::DispatchFailure> DispatchBatch(
        const Services::Internal::NotificationBatch& batch) override
    {
        std::vector<Services::Internal::DispatchFailure> failures;
        for (std::uint32_t index = 0, first = 0; index < batch.Size(); first += batch.nameIdCounts[index++])
        {
            try
            {
                dispatch(
                    *batch.notifications[index],
                    {batch.nameIds.data() + first, batch.nameIds.data() + first + batch.nameIdCounts[index]});
            }
            catch (const std::exception& e)
            {
                failures.push_back({index, TulString<512>(e.what())});
            }
        }
        return failures;
    }

private:
    DispatchFunction dispatch;
};

template <std::uint32_t Capacity>
class BrokerThreadFixture : public ::testing::Test
{
protected:
    /// Its deliveries are kept as "<dispatcher> <notification id>: <name ids>"; `first` runs before.
    void AddDispatcher(
        const std::string& name, std::function<void()> first = [] {})
    {
        auto service = std::make_shared<FakeDispatcher>(
            [this, name, first](const Notification& notification, const std::vector<std::uint32_t>& nameIds)
            {
                first();
                std::lock_guard<std::mutex> lock(mutex);
                deliveries.push_back(
                    fmt::format("{} {}: {}", name, notification.GetId(), fmt::join(nameIds, " ")));
            });
        ids[name] = dispatchers.Add(name.c_str(), service);
    }

    void Want(const std::string& dispatcher, const char* name)
    {
        dispatchTable.Add(names.AddOrGetId(name), ids.at(dispatcher));
    }

    std::shared_ptr<Notification> MakeNotification(std::uint64_t id, const char* name)
    {
        return std::make_shared<Notification>(NotificationId(id), names.AddOrGetId(name),
                                              Kiv::DateTime::GetUtcNow(), Severity::Info, PayloadTypeId(1),
                                              std::vector<TulVariant<512>>{});
    }

    std::unique_ptr<NotificationBrokerThread> MakeThread()
    {
        return std::make_unique<NotificationBrokerThread>(names, dispatchers, dispatchTable, queue);
    }

    std::vector<std::string> Deliveries()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return deliveries;
    }

    std::mutex mutex;
    std::vector<std::string> deliveries;
    std::map<std::string, NotificationDispatcherId> ids;
    NotificationNameRepository names;
    NotificationDispatcherRepository dispatchers;
    NotificationDispatchingRepository dispatchTable;
    ThreadSafeQueue<Notification> queue{Capacity};
};

using NotificationBrokerThreadTest = BrokerThreadFixture<16>;
using NotificationBrokerThreadCapacityOneTest = BrokerThreadFixture<1>;
}  // namespace

TEST_F(NotificationBrokerThreadTest, OneDispatchPerDispatcherInAscendingIdAndAFailureCostsOnlyItsNotification)
{
    CapturingSink log;
    AddDispatcher("failing", [] { throw Kiv::InvalidOperationException("dispatcher failing failed"); });
    AddDispatcher("first");
    AddDispatcher("second");
    Want("second", "A.B.C");
    Want("first", "A.B");
    Want("first", "A");
    Want("failing", "Z");
    Want("second", "Z");
    Want("second", "B");
    dispatchTable.Add(names.AddOrGetId("C"), NotificationDispatcherId(99));
    for (const auto& [id, name] : std::vector<std::pair<int, const char*>>{
             {10, "A.B.C"}, {11, "A.B"}, {12, "Q"}, {13, "Z"}, {14, "C"}, {15, "B"}})
    {
        ASSERT_TRUE(queue.TryPush(MakeNotification(id, name)));
    }
    auto thread = MakeThread();
    thread->Start();
    thread.reset();

    // Name ids: A 1, A.B 2, A.B.C 3, Z 4, B 5. The dispatcher behind the failing one misses 13.
    EXPECT_THAT(Deliveries(), ElementsAre("first 10: 1 2", "second 10: 3", "first 11: 1 2", "second 15: 5"));
    const auto records = log.GetRecords("Kiv.System.Nm.Internal.NotificationBroker.NotificationBrokerThread");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].level, 3);
    EXPECT_THAT(records[0].text,
                HasSubstr("Caught exception during notification dispatch: dispatcher failing failed "
                          "(Kiv::InvalidOperationException)"));
    EXPECT_THAT(records[1].text, HasSubstr("NotificationDispatcherRepository:: tried to query unknown: 99"));
}

TEST_F(NotificationBrokerThreadCapacityOneTest, TheElementInDeliveryFreesItsPlaceAndAStopDeliversAllQueued)
{
    std::atomic<int> entered{0};
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    AddDispatcher("slow",
                  [&]
                  {
                      ++entered;
                      released.wait();
                  });
    Want("slow", "A");
    auto thread = MakeThread();
    thread->Start();
    ASSERT_TRUE(queue.TryPush(MakeNotification(1, "A")));
    ASSERT_TRUE(WaitFor([&] { return entered == 1; }));
    EXPECT_TRUE(queue.TryPush(MakeNotification(2, "A")));
    EXPECT_FALSE(queue.TryPush(MakeNotification(3, "A")));
    EXPECT_FALSE(ThreadSafeQueue<int>(0).TryPush(std::make_shared<int>(1))) << "a capacity of 0 refuses all";

    std::atomic<bool> stopped{false};
    std::thread stopper(
        [&]
        {
            thread.reset();
            stopped = true;
        });
    // The stop marker can't get into the full queue while delivery is held.
    EXPECT_FALSE(stopped.load());
    release.set_value();
    stopper.join();
    EXPECT_THAT(Deliveries(), ElementsAre("slow 1: 1", "slow 2: 1"));
}

TEST_F(NotificationBrokerThreadCapacityOneTest, ANeverStartedThreadWaitsBehindAFullQueueForRoom)
{
    // As a broker whose dispatching never started is disposed after its queue filled up: the stop marker
    // waits for room however long that takes, and goes in as soon as there is some.
    auto notification = MakeNotification(1, "A");
    ASSERT_TRUE(queue.TryPush(notification));
    std::atomic<bool> stopped{false};
    std::thread stopper(
        [&]
        {
            MakeThread().reset();
            stopped = true;
        });
    const bool gaveUp = WaitFor([&] { return stopped.load(); }, std::chrono::milliseconds(300));
    EXPECT_EQ(queue.Pop(), notification) << "nothing was taken";
    stopper.join();
    ASSERT_FALSE(gaveUp) << "the stop gave up on the full queue";
    EXPECT_EQ(queue.Pop(), nullptr) << "the stop marker went in once there was room";
}
