#include <Nm/Internal/NotificationBroker/NotificationBrokerThread.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatcherRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>
#include <Nm/Notification.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/System/Tul/TulAfterResponse.h>

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
using ::testing::UnorderedElementsAre;

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
        ++batches;
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

    std::atomic<int> batches{0};

private:
    DispatchFunction dispatch;
};

template <std::uint32_t Capacity>
class BrokerThreadFixture : public ::testing::Test
{
protected:
    /// Its deliveries are kept as "<dispatcher> <notification id>: <name ids>" and the thread of each;
    /// `first` runs before and may throw.
    void AddDispatcher(
        const std::string& name, std::function<void(const Notification&)> first = [](const Notification&) {},
        pid_t process = -1)
    {
        auto service = std::make_shared<FakeDispatcher>(
            [this, name, first](const Notification& notification, const std::vector<std::uint32_t>& nameIds)
            {
                first(notification);
                std::lock_guard<std::mutex> lock(mutex);
                deliveries.push_back(
                    fmt::format("{} {}: {}", name, notification.GetId(), fmt::join(nameIds, " ")));
                threads.push_back(std::this_thread::get_id());
            });
        services[name] = service;
        ids[name] = dispatchers.Add(name.c_str(), service, process);
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

    /// By default no delivery counts as slow, however slow the machine (an emulator, a sanitizer).
    std::unique_ptr<NotificationBrokerThread> MakeThread(
        std::chrono::nanoseconds slowDelivery = std::chrono::hours(1))
    {
        return std::make_unique<NotificationBrokerThread>(names, dispatchers, dispatchTable, queue,
                                                          slowDelivery);
    }

    std::vector<std::string> Deliveries()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return deliveries;
    }

    std::vector<std::thread::id> Threads()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return threads;
    }

    std::mutex mutex;
    std::vector<std::string> deliveries;
    std::vector<std::thread::id> threads;
    std::map<std::string, std::shared_ptr<FakeDispatcher>> services;
    std::map<std::string, NotificationDispatcherId> ids;
    NotificationNameRepository names;
    NotificationDispatcherRepository dispatchers;
    NotificationDispatchingRepository dispatchTable;
    ThreadSafeQueue<Notification> queue{Capacity};
};

using NotificationBrokerThreadTest = BrokerThreadFixture<16>;
using NotificationBrokerThreadCapacityOneTest = BrokerThreadFixture<1>;
}  // namespace

TEST_F(NotificationBrokerThreadTest,
       WaitingNotificationsGoToEachDispatcherInOneCallAndAFailureCostsOnlyItsOwn)
{
    CapturingSink log;
    AddDispatcher("failing",
                  [](const Notification& notification)
                  {
                      if (notification.GetId() == NotificationId(13))
                      {
                          throw Kiv::InvalidOperationException("dispatcher failing failed");
                      }
                  });
    AddDispatcher("first");
    AddDispatcher("second");
    Want("second", "A.B.C");
    Want("first", "A.B");
    Want("first", "A");
    Want("failing", "Z");
    Want("failing", "Y");
    Want("second", "Z");
    Want("second", "B");
    dispatchTable.Add(names.AddOrGetId("C"), NotificationDispatcherId(99));
    for (const auto& [id, name] : std::vector<std::pair<int, const char*>>{
             {10, "A.B.C"}, {11, "A.B"}, {12, "Q"}, {13, "Z"}, {14, "C"}, {15, "B"}, {16, "Y"}})
    {
        ASSERT_TRUE(queue.TryPush(MakeNotification(id, name)));
    }
    auto thread = MakeThread();
    thread->Start();
    thread.reset();

    // Name ids: A 1, A.B 2, A.B.C 3, Z 4, Y 5, B 6. All seven wait at the start: one batch per dispatcher,
    // in queue order; 13 failed at "failing", so "second" behind it doesn't get it.
    EXPECT_THAT(Deliveries(), ElementsAre("failing 16: 5", "first 10: 1 2", "first 11: 1 2", "second 10: 3",
                                          "second 15: 6"));
    EXPECT_EQ(services["failing"]->batches, 1);
    EXPECT_EQ(services["first"]->batches, 1);
    EXPECT_EQ(services["second"]->batches, 1);
    const auto records = log.GetRecords("Kiv.System.Nm.Internal.NotificationBroker.NotificationBrokerThread");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].level, 3);
    EXPECT_THAT(records[0].text,
                HasSubstr("Caught exception during notification dispatch: dispatcher failing failed"));
    EXPECT_THAT(records[1].text, HasSubstr("NotificationDispatcherRepository:: tried to query unknown: 99"));

    // One notification alone takes the one-notification call, and a dispatcher that throws costs it the
    // dispatchers behind.
    auto again = MakeThread();
    again->Start();
    ASSERT_TRUE(queue.TryPush(MakeNotification(13, "Z")));
    again.reset();
    EXPECT_EQ(Deliveries().size(), 5u);
    EXPECT_EQ(services["failing"]->batches, 1);
    EXPECT_EQ(log.GetRecords("Kiv.System.Nm.Internal.NotificationBroker.NotificationBrokerThread").size(),
              3u);
}

TEST_F(NotificationBrokerThreadTest,
       AServingThreadDeliversForAnIdleThreadAfterItsResponseButNotToTheOwnOrTheCallersProcess)
{
    const pid_t caller = 4242;
    AddDispatcher(
        "own", [](const Notification&) {}, 0);
    AddDispatcher(
        "caller", [](const Notification&) {}, caller);
    AddDispatcher(
        "remote", [](const Notification&) {}, 777);
    AddDispatcher(
        "other", [](const Notification&) {}, 778);
    Want("own", "Own");
    Want("caller", "Caller");
    Want("remote", "A");
    Want("other", "Other");
    auto thread = MakeThread();
    thread->Start();
    using Pushed = ThreadSafeQueue<Notification>::Pushed;
    // Pushes notification `id` until a push finds the thread waiting and takes its part over; those
    // queued meanwhile are delivered by the thread. Gives the number of deliveries before.
    const auto takeOver = [&](int id)
    {
        for (;;)
        {
            const std::size_t before = Deliveries().size();
            if (queue.TryPush(MakeNotification(id, "A"), true) == Pushed::TakenOver)
            {
                return before;
            }
            EXPECT_TRUE(WaitFor([&] { return Deliveries().size() == before + 1; }));
        }
    };
    // Outside a served call the part goes back at once, and the broker's thread delivers.
    const std::size_t before = takeOver(1);
    thread->HandOverAfterResponse(caller);
    ASSERT_TRUE(WaitFor([&] { return Deliveries().size() == before + 1; }));
    EXPECT_NE(Threads().back(), std::this_thread::get_id());

    // In a served call, nothing moves until the response is out; then this thread delivers up to the
    // first notification that the own process or the caller's or a second dispatcher wants, which with
    // those behind goes to the broker's thread.
    struct Stopper
    {
        const char* name;
        const char* dispatcher;
        int nameId;
        int id;
    };
    for (const auto& [stopper, dispatcher, nameId, id] : std::vector<Stopper>{
             {"Own", "own", 1, 2000}, {"Caller", "caller", 2, 3000}, {"Other", "other", 4, 4000}})
    {
        std::size_t served = 0;
        {
            Kiv::System::Tul::AfterResponseSlot slot;
            slot.Open();
            served = takeOver(id + 1);
            thread->HandOverAfterResponse(caller);
            ASSERT_EQ(queue.TryPush(MakeNotification(id + 2, "A"), true), Pushed::Queued);
            ASSERT_EQ(queue.TryPush(MakeNotification(id + 3, stopper), true), Pushed::Queued);
            ASSERT_EQ(queue.TryPush(MakeNotification(id + 4, "A"), true), Pushed::Queued);
            slot.Close();
            EXPECT_EQ(Deliveries().size(), served) << "delivered before the response";
        }
        ASSERT_TRUE(WaitFor([&] { return Deliveries().size() == served + 4; }));
        const std::vector<std::string> all = Deliveries();
        const auto from = all.begin() + static_cast<std::ptrdiff_t>(served);
        EXPECT_THAT(std::vector<std::string>(from, from + 2),
                    ElementsAre(fmt::format("remote {}: 3", id + 1), fmt::format("remote {}: 3", id + 2)));
        // The broker's thread takes the last two together: each dispatcher's share in id order.
        EXPECT_THAT(std::vector<std::string>(from + 2, all.end()),
                    UnorderedElementsAre(fmt::format("{} {}: {}", dispatcher, id + 3, nameId),
                                         fmt::format("remote {}: 3", id + 4)));
        const auto on = Threads();
        EXPECT_EQ(on[served], std::this_thread::get_id());
        EXPECT_EQ(on[served + 1], std::this_thread::get_id());
        EXPECT_NE(on[served + 2], std::this_thread::get_id());
        EXPECT_NE(on[served + 3], std::this_thread::get_id());
    }

    // A dispatcher whose last delivery took longer than the threshold, here any, is left to the broker's
    // thread.
    thread.reset();
    thread = MakeThread(std::chrono::nanoseconds(0));
    thread->Start();
    std::size_t slow = takeOver(5001);
    thread->HandOverAfterResponse(caller);
    ASSERT_TRUE(WaitFor([&] { return Deliveries().size() == slow + 1; }));
    {
        Kiv::System::Tul::AfterResponseSlot slot;
        slot.Open();
        slow = takeOver(5002);
        thread->HandOverAfterResponse(caller);
        slot.Close();
    }
    ASSERT_TRUE(WaitFor([&] { return Deliveries().size() == slow + 1; }));
    EXPECT_EQ(Deliveries().back(), "remote 5002: 3");
    EXPECT_NE(Threads().back(), std::this_thread::get_id());
}

TEST_F(NotificationBrokerThreadCapacityOneTest, TheElementInDeliveryFreesItsPlaceAndAStopDeliversAllQueued)
{
    std::atomic<int> entered{0};
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    AddDispatcher("slow",
                  [&](const Notification&)
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
