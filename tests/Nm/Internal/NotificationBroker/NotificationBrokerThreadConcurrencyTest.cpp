#include <Nm/Internal/NotificationBroker/NotificationBrokerThread.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatcherManager.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>
#include <Nm/Notification.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <Support/WaitFor.h>

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

// The broker thread delivering to dispatchers that the dispatcher manager found the way the broker finds
// them: by their name through the service manager.

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NotificationBroker;
using Kiv::System::Commons::Logging::CapturingSink;
using Kiv::System::Tul::ITulService;
using Kiv::System::Tul::ServiceManager;
using DispatcherServiceProxies = Services::Internal::NotificationDispatcherServiceProxyFactory;
using Kiv::Testing::WaitFor;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

namespace
{
/// What the fake dispatchers share: the deliveries in the order the broker thread made them, each as
/// "<dispatcher> <notification id>: <name ids>".
struct Shared
{
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> deliveries;
};

/// A dispatcher service that records its calls; it can hold the broker thread in Dispatch until
/// released, or throw.
class FakeDispatcher : public Services::Internal::INotificationDispatcherService
{
public:
    FakeDispatcher(std::string name, Shared& shared) : name(std::move(name)), shared(shared) {}

    void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) override
    {
        std::unique_lock<std::mutex> lock(shared.mutex);
        ++entered;
        shared.changed.wait(lock, [this] { return !holding; });
        if (throwing)
        {
            throw Kiv::InvalidOperationException("dispatcher {0} failed", name);
        }
        shared.deliveries.push_back(
            fmt::format("{} {}: {}", name, notification.GetId(), fmt::join(nameIds, " ")));
    }

    void Hold(bool hold = true)
    {
        std::lock_guard<std::mutex> lock(shared.mutex);
        holding = hold;
        shared.changed.notify_all();
    }

    int Entered()
    {
        std::lock_guard<std::mutex> lock(shared.mutex);
        return entered;
    }

    bool throwing = false;

private:
    std::string name;
    Shared& shared;
    bool holding = false;
    int entered = 0;
};

/// A service published under the dispatcher service's name that is something else.
class NotADispatcher : public ITulService
{
};

/// What a process publishes under its name: each fetch makes a new service.
class Factory : public Kiv::System::Tul::ITulServiceFactory
{
public:
    explicit Factory(std::function<ITulService*()> make) : make(std::move(make)) {}
    bool GetUsesSecurityStub() const override { return false; }
    const Kiv::String& GetServiceProviderName() const override { return provider; }
    ITulService* CreateServiceImpl(const char*, Kiv::System::Tul::ITulAuthorizator*) override
    {
        return make();
    }
    Kiv::System::Tul::ITulServiceStub* CreateServiceStub(const char*,
                                                         Kiv::System::Tul::ITulAuthorizator*) override
    {
        return nullptr;
    }

private:
    std::function<ITulService*()> make;
    Kiv::String provider;
};

template <std::uint32_t Capacity>
class BrokerThreadFixture : public ::testing::Test
{
protected:
    void TearDown() override { ServiceManager::Reset(); }

    void Publish(const std::string& name, std::function<ITulService*()> make)
    {
        factories.push_back(std::make_unique<Factory>(std::move(make)));
        ServiceManager::PublishService(name.c_str(), DispatcherServiceProxies::GetInstance().GetServiceName(),
                                       *factories.back());
    }

    FakeDispatcher& AddDispatcher(const std::string& name)
    {
        Publish(name, [this, name] { return lastMade = new FakeDispatcher(name, shared); });
        ids[name] = manager.RegisterDispatcher(name.c_str());
        return *lastMade;
    }

    void Want(const std::string& dispatcher, const char* name)
    {
        manager.RegisterNotificationDispatch(names.AddOrGetId(name), ids.at(dispatcher));
    }

    std::shared_ptr<Notification> MakeNotification(std::uint64_t id, const char* name)
    {
        return std::make_shared<Notification>(NotificationId(id), names.AddOrGetId(name),
                                              Kiv::DateTime::GetUtcNow(), Severity::Info, PayloadTypeId(1),
                                              std::vector<TulVariant<512>>{});
    }

    std::unique_ptr<NotificationBrokerThread> MakeThread()
    {
        return std::make_unique<NotificationBrokerThread>(names, manager.GetDispatcherRepository(),
                                                          manager.GetDispatchTable(), queue);
    }

    std::vector<std::string> Deliveries()
    {
        std::lock_guard<std::mutex> lock(shared.mutex);
        return shared.deliveries;
    }

    Shared shared;
    std::vector<std::unique_ptr<Factory>> factories;
    FakeDispatcher* lastMade = nullptr;
    std::map<std::string, NotificationDispatcherId> ids;
    NotificationNameRepository names;
    NotificationDispatcherManager manager;
    Internal::ThreadSafeQueue<Notification> queue{Capacity};
};

using NotificationBrokerThreadTest = BrokerThreadFixture<16>;
using NotificationBrokerThreadCapacityOneTest = BrokerThreadFixture<1>;
using NotificationDispatcherManagerTest = BrokerThreadFixture<16>;
}  // namespace

TEST_F(NotificationBrokerThreadTest, OneDispatchPerDispatcherInAscendingIdWithTheWantedAncestors)
{
    AddDispatcher("first");
    AddDispatcher("second");
    AddDispatcher("uninterested");
    Want("second", "A.B.C");
    Want("first", "A.B");
    Want("first", "A");
    Want("first", "A");  // a second request for the same row is harmless
    Want("uninterested", "X");
    ASSERT_TRUE(queue.TryPush(MakeNotification(10, "A.B.C")));
    ASSERT_TRUE(queue.TryPush(MakeNotification(11, "A.B")));
    ASSERT_TRUE(queue.TryPush(MakeNotification(12, "Q")));
    auto thread = MakeThread();
    thread->Start();
    thread.reset();

    EXPECT_THAT(Deliveries(), ElementsAre("first 10: 1 2", "second 10: 3", "first 11: 1 2"));
}

TEST_F(NotificationBrokerThreadCapacityOneTest, TheElementInDeliveryFreesItsPlaceAndAStopDeliversAllQueued)
{
    auto& dispatcher = AddDispatcher("slow");
    Want("slow", "A");
    dispatcher.Hold();
    auto thread = MakeThread();
    thread->Start();
    ASSERT_TRUE(queue.TryPush(MakeNotification(1, "A")));
    ASSERT_TRUE(WaitFor([&] { return dispatcher.Entered() == 1; }));
    EXPECT_TRUE(queue.TryPush(MakeNotification(2, "A")));
    EXPECT_FALSE(queue.TryPush(MakeNotification(3, "A")));

    std::atomic<bool> stopped{false};
    std::thread stopper(
        [&]
        {
            thread.reset();
            stopped = true;
        });
    // The stop marker can't get into the full queue while delivery is held.
    EXPECT_FALSE(stopped.load());
    dispatcher.Hold(false);
    stopper.join();
    EXPECT_THAT(Deliveries(), ElementsAre("slow 1: 1", "slow 2: 1"));
}

TEST_F(NotificationBrokerThreadCapacityOneTest, ANeverStartedThreadStopsAtOnceBehindAFullQueue)
{
    // As a broker whose dispatching never started is disposed after its queue filled up.
    auto notification = MakeNotification(1, "A");
    ASSERT_TRUE(queue.TryPush(notification));
    std::atomic<bool> stopped{false};
    std::thread stopper(
        [&]
        {
            MakeThread().reset();
            stopped = true;
        });
    EXPECT_TRUE(WaitFor([&] { return stopped.load(); }));
    EXPECT_EQ(queue.Pop(), notification) << "nothing was taken";  // also makes room for a waiting stop
    stopper.join();
}

TEST_F(NotificationBrokerThreadTest, AFailingDispatcherCostsOnlyThatNotificationAndIsLogged)
{
    CapturingSink log;
    AddDispatcher("first").throwing = true;
    AddDispatcher("second");
    Want("first", "A");
    Want("second", "A");
    Want("second", "B");
    manager.RegisterNotificationDispatch(names.AddOrGetId("C"), NotificationDispatcherId(99));
    auto thread = MakeThread();
    thread->Start();
    ASSERT_TRUE(queue.TryPush(MakeNotification(1, "A")));
    ASSERT_TRUE(queue.TryPush(MakeNotification(2, "C")));
    ASSERT_TRUE(queue.TryPush(MakeNotification(3, "B")));
    thread.reset();

    EXPECT_THAT(Deliveries(), ElementsAre("second 3: 2"))
        << "the dispatcher behind the failing one misses notification 1";
    const auto records = log.GetRecords("Kiv.System.Nm.Internal.NotificationBroker.NotificationBrokerThread");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].level, 3);
    EXPECT_THAT(records[0].text,
                HasSubstr("Caught exception during notification dispatch: dispatcher first failed "
                          "(Kiv::InvalidOperationException)"));
    EXPECT_THAT(records[1].text, HasSubstr("NotificationDispatcherRepository:: tried to query unknown: 99"));
}

TEST_F(NotificationDispatcherManagerTest, EachRegistrationFetchesAFreshServiceByNameAndGetsANewId)
{
    EXPECT_THAT([&] { manager.RegisterDispatcher("Nobody"); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "Could not retrieve service "
                    "'Kiv::System::Nm::Services::Internal::INotificationDispatcherService' from service "
                    "provider 'Nobody'."));
    Publish("Wrong", [] { return new NotADispatcher; });
    EXPECT_THAT([&] { manager.RegisterDispatcher("Wrong"); },
                ThrowsMessage<Kiv::InvalidCastException>(
                    "The service does not implement service interface "
                    "'Kiv.System.Nm.Services.Internal.INotificationDispatcherService'."));

    AddDispatcher("A");
    const auto first = ids.at("A");
    EXPECT_EQ(first, NotificationDispatcherId(1)) << "a refusal uses up no id";
    const auto second = manager.RegisterDispatcher("A");
    EXPECT_NE(manager.GetDispatcherRepository().GetService(first),
              manager.GetDispatcherRepository().GetService(second));
    manager.UnregisterDispatcher(second);
    EXPECT_EQ(manager.RegisterDispatcher("A"), NotificationDispatcherId(3));

    // Dispatch rows outlive their dispatcher until they are removed.
    const NotificationNameId name(7);
    manager.RegisterNotificationDispatch(name, first);
    manager.UnregisterDispatcher(first);
    EXPECT_TRUE(manager.ContainsNotificationDispatch(name, first));
    manager.UnregisterNotificationDispatch(name, first);
    EXPECT_FALSE(manager.HasDispatcherFor(name));
    EXPECT_THAT([&] { manager.UnregisterNotificationDispatch(name, first); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "NotificationDispatchingRepository: Tried to remove unknown: notificationNameId=7, "
                    "dispatcherId=1"));
}
