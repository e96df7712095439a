#include <Nm/Internal/NotificationBroker/NotificationBrokerThread.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatcherRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>
#include <Nm/Notification.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>

#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
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
struct DispatchCall
{
    std::string dispatcher;
    std::uint64_t notificationId;
    std::vector<std::uint32_t> nameIds;
};

/// Everything the fake dispatchers were asked to deliver, in the order the broker thread asked.
class Journal
{
public:
    void Add(DispatchCall call)
    {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(std::move(call));
    }

    std::vector<DispatchCall> Get() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return calls;
    }

    std::size_t Count() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return calls.size();
    }

private:
    mutable std::mutex mutex;
    std::vector<DispatchCall> calls;
};

/// A dispatcher service that records its calls; it can be made to hold the broker thread in Dispatch
/// until released, or to throw.
class FakeDispatcher : public Services::Internal::INotificationDispatcherService
{
public:
    FakeDispatcher(std::string name, Journal& journal) : name(std::move(name)), journal(journal) {}

    void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) override
    {
        std::unique_lock<std::mutex> lock(mutex);
        ++entered;
        released.wait(lock, [this] { return !holding; });
        lock.unlock();
        if (throwing)
        {
            throw Kiv::InvalidOperationException("dispatcher {0} failed", name);
        }
        journal.Add({name, notification.GetId().GetValue(), nameIds});
    }

    void Hold()
    {
        std::lock_guard<std::mutex> lock(mutex);
        holding = true;
    }

    void Release()
    {
        std::lock_guard<std::mutex> lock(mutex);
        holding = false;
        released.notify_all();
    }

    int Entered()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return entered;
    }

    bool throwing = false;

private:
    std::string name;
    Journal& journal;
    std::mutex mutex;
    std::condition_variable released;
    bool holding = false;
    int entered = 0;
};

class NotificationBrokerThreadTest : public ::testing::Test
{
protected:
    explicit NotificationBrokerThreadTest(std::uint32_t capacity = 16) : queue(capacity) {}

    std::shared_ptr<FakeDispatcher> AddDispatcher(const std::string& name)
    {
        auto service = std::make_shared<FakeDispatcher>(name, journal);
        ids[name] = dispatchers.Add(name.c_str(), service);
        return service;
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

    NotificationNameRepository names;
    NotificationDispatcherRepository dispatchers;
    NotificationDispatchingRepository dispatchTable;
    ThreadSafeQueue<Notification> queue;
    Journal journal;
    std::map<std::string, NotificationDispatcherId> ids;
};

class NotificationBrokerThreadCapacityOneTest : public NotificationBrokerThreadTest
{
protected:
    NotificationBrokerThreadCapacityOneTest() : NotificationBrokerThreadTest(1) {}
};
}  // namespace

TEST_F(NotificationBrokerThreadTest, OneDispatchPerDispatcherInAscendingIdWithTheWantedAncestors)
{
    AddDispatcher("first");
    AddDispatcher("second");
    AddDispatcher("uninterested");
    Want("second", "A.B.C");
    Want("first", "A.B");
    Want("first", "A");
    Want("uninterested", "X");
    auto thread = MakeThread();
    thread->Start();
    ASSERT_TRUE(queue.TryPush(MakeNotification(10, "A.B.C")));
    ASSERT_TRUE(queue.TryPush(MakeNotification(11, "A.B")));
    ASSERT_TRUE(queue.TryPush(MakeNotification(12, "Q")));
    thread.reset();

    const auto calls = journal.Get();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].dispatcher, "first");
    EXPECT_EQ(calls[0].notificationId, 10u);
    EXPECT_THAT(calls[0].nameIds, ElementsAre(1u, 2u));
    EXPECT_EQ(calls[1].dispatcher, "second");
    EXPECT_THAT(calls[1].nameIds, ElementsAre(3u));
    EXPECT_EQ(calls[2].dispatcher, "first");
    EXPECT_EQ(calls[2].notificationId, 11u);
    EXPECT_THAT(calls[2].nameIds, ElementsAre(1u, 2u));
}

TEST_F(NotificationBrokerThreadCapacityOneTest, AnElementBeingDeliveredNoLongerCountsAgainstTheCapacity)
{
    auto dispatcher = AddDispatcher("slow");
    Want("slow", "A");
    dispatcher->Hold();
    auto thread = MakeThread();
    thread->Start();
    ASSERT_TRUE(queue.TryPush(MakeNotification(1, "A")));
    ASSERT_TRUE(WaitFor([&] { return dispatcher->Entered() == 1; }));
    EXPECT_TRUE(queue.TryPush(MakeNotification(2, "A")));
    EXPECT_FALSE(queue.TryPush(MakeNotification(3, "A")));
    dispatcher->Release();
    thread.reset();
    EXPECT_EQ(journal.Count(), 2u);
}

TEST_F(NotificationBrokerThreadCapacityOneTest, StopBehindAFullQueueStillDeliversEverythingQueued)
{
    auto dispatcher = AddDispatcher("slow");
    Want("slow", "A");
    dispatcher->Hold();
    auto thread = MakeThread();
    thread->Start();
    ASSERT_TRUE(queue.TryPush(MakeNotification(1, "A")));
    ASSERT_TRUE(WaitFor([&] { return dispatcher->Entered() == 1; }));
    ASSERT_TRUE(queue.TryPush(MakeNotification(2, "A")));

    std::atomic<bool> stopped{false};
    std::thread stopper(
        [&]
        {
            thread.reset();
            stopped = true;
        });
    // The stop marker can't get into the full queue while delivery is held.
    EXPECT_FALSE(stopped.load());
    dispatcher->Release();
    stopper.join();
    const auto calls = journal.Get();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].notificationId, 1u);
    EXPECT_EQ(calls[1].notificationId, 2u);
}

TEST_F(NotificationBrokerThreadTest, ANeverStartedThreadDeliversNothingAndStopsAtOnce)
{
    AddDispatcher("d");
    Want("d", "A");
    auto notification = MakeNotification(1, "A");
    ASSERT_TRUE(queue.TryPush(notification));
    MakeThread().reset();
    EXPECT_EQ(journal.Count(), 0u);
    EXPECT_EQ(queue.Pop(), notification);
    EXPECT_EQ(queue.Pop(), nullptr) << "the stop marker stays behind the undelivered notification";
}

TEST_F(NotificationBrokerThreadCapacityOneTest, ANeverStartedThreadStopsAtOnceBehindAFullQueue)
{
    // As a broker whose dispatching never started is disposed after its queue filled up.
    ASSERT_TRUE(queue.TryPush(MakeNotification(1, "A")));
    auto thread = MakeThread();
    std::atomic<bool> stopped{false};
    std::thread stopper(
        [&]
        {
            thread.reset();
            stopped = true;
        });
    EXPECT_TRUE(WaitFor([&] { return stopped.load(); }));
    if (!stopped)
    {
        queue.Pop();  // makes room for a waiting stop marker, so that the test ends
    }
    stopper.join();
}

TEST_F(NotificationBrokerThreadTest, AFailingDispatcherCostsOnlyThatNotificationAndIsLogged)
{
    CapturingSink log;
    AddDispatcher("first")->throwing = true;
    AddDispatcher("second");
    Want("first", "A");
    Want("second", "A");
    Want("second", "B");
    dispatchTable.Add(names.AddOrGetId("C"), NotificationDispatcherId(99));
    auto thread = MakeThread();
    thread->Start();
    ASSERT_TRUE(queue.TryPush(MakeNotification(1, "A")));
    ASSERT_TRUE(queue.TryPush(MakeNotification(2, "C")));
    ASSERT_TRUE(queue.TryPush(MakeNotification(3, "B")));
    thread.reset();

    const auto calls = journal.Get();
    ASSERT_EQ(calls.size(), 1u) << "the dispatcher behind the failing one misses notification 1";
    EXPECT_EQ(calls[0].notificationId, 3u);
    const auto records = log.GetRecords("Kiv.System.Nm.Internal.NotificationBroker.NotificationBrokerThread");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].level, 3);
    EXPECT_THAT(records[0].text,
                HasSubstr("Caught exception during notification dispatch: dispatcher first failed "
                          "(Kiv::InvalidOperationException)"));
    EXPECT_THAT(records[1].text, HasSubstr("NotificationDispatcherRepository:: tried to query unknown: 99"));
}
