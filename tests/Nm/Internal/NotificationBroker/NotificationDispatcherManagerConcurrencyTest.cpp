#include <Nm/Internal/NotificationBroker/NotificationBrokerThread.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatcherManager.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>
#include <Nm/Notification.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

// The dispatcher bookkeeping of the broker, with dispatchers found the way the broker finds them: by
// their name through the service manager.

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NotificationBroker;
using Kiv::System::Nm::Services::Internal::INotificationDispatcherService;
using Kiv::System::Nm::Services::Internal::NotificationDispatcherServiceProxyFactory;
using Kiv::System::Tul::ServiceManager;
using Kiv::Testing::WaitFor;
using ::testing::ElementsAre;
using ::testing::ThrowsMessage;

namespace
{
struct Delivery
{
    std::string dispatcher;
    std::uint64_t notificationId;
    std::vector<std::uint32_t> nameIds;
};

class Deliveries
{
public:
    void Add(Delivery delivery)
    {
        std::lock_guard<std::mutex> lock(mutex);
        list.push_back(std::move(delivery));
    }
    std::vector<Delivery> Get() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return list;
    }

private:
    mutable std::mutex mutex;
    std::vector<Delivery> list;
};

class RecordingDispatcher : public INotificationDispatcherService
{
public:
    RecordingDispatcher(std::string name, Deliveries& deliveries)
        : name(std::move(name)), deliveries(deliveries)
    {
    }
    void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) override
    {
        deliveries.Add({name, notification.GetId().GetValue(), nameIds});
    }

private:
    std::string name;
    Deliveries& deliveries;
};

/// What a process publishes for its dispatcher, here made in this process.
class DispatcherFactory : public Kiv::System::Tul::ITulServiceFactory
{
public:
    DispatcherFactory(std::string name, Deliveries& deliveries)
        : name(std::move(name)), deliveries(deliveries)
    {
    }
    bool GetUsesSecurityStub() const override { return false; }
    const Kiv::String& GetServiceProviderName() const override { return provider; }
    Kiv::System::Tul::ITulService* CreateServiceImpl(const char*,
                                                     Kiv::System::Tul::ITulAuthorizator*) override
    {
        return new RecordingDispatcher(name, deliveries);
    }
    Kiv::System::Tul::ITulServiceStub* CreateServiceStub(const char*,
                                                         Kiv::System::Tul::ITulAuthorizator*) override
    {
        return nullptr;
    }

private:
    std::string name;
    Deliveries& deliveries;
    Kiv::String provider;
};

/// A service that is published under the dispatcher service's name but is something else.
class NotADispatcher : public Kiv::System::Tul::ITulService
{
};

class WrongFactory : public DispatcherFactory
{
public:
    using DispatcherFactory::DispatcherFactory;
    Kiv::System::Tul::ITulService* CreateServiceImpl(const char*,
                                                     Kiv::System::Tul::ITulAuthorizator*) override
    {
        return new NotADispatcher;
    }
};

class NotificationDispatcherManagerTest : public ::testing::Test
{
protected:
    void Publish(const char* processName, Kiv::System::Tul::ITulServiceFactory& factory)
    {
        ServiceManager::PublishService(
            processName, NotificationDispatcherServiceProxyFactory::GetInstance().GetServiceName(), factory);
    }
    void TearDown() override { ServiceManager::Reset(); }

    Deliveries deliveries;
    DispatcherFactory processA{"A", deliveries};
    DispatcherFactory processB{"B", deliveries};
    NotificationDispatcherManager manager;
};

TEST_F(NotificationDispatcherManagerTest, AnUnreachableOrForeignServiceIsRefusedWithoutUsingAnId)
{
    EXPECT_THAT([&] { manager.RegisterDispatcher("Nobody"); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "Could not retrieve service "
                    "'Kiv::System::Nm::Services::Internal::INotificationDispatcherService' from service "
                    "provider 'Nobody'."));

    WrongFactory wrong{"W", deliveries};
    Publish("Wrong", wrong);
    EXPECT_THAT([&] { manager.RegisterDispatcher("Wrong"); },
                ThrowsMessage<Kiv::InvalidCastException>(
                    "The service does not implement service interface "
                    "'Kiv.System.Nm.Services.Internal.INotificationDispatcherService'."));

    Publish("ProcessA", processA);
    EXPECT_EQ(manager.RegisterDispatcher("ProcessA"), NotificationDispatcherId(1));
    EXPECT_EQ(manager.GetDispatcherRepository().Count(), 1u);
}

TEST_F(NotificationDispatcherManagerTest, EachRegistrationFetchesAFreshServiceAndIdsAreNeverReused)
{
    Publish("ProcessA", processA);
    const auto first = manager.RegisterDispatcher("ProcessA");
    const auto second = manager.RegisterDispatcher("ProcessA");
    EXPECT_NE(first, second);
    EXPECT_NE(manager.GetDispatcherRepository().GetService(first),
              manager.GetDispatcherRepository().GetService(second));

    manager.UnregisterDispatcher(second);
    EXPECT_EQ(manager.RegisterDispatcher("ProcessA"), NotificationDispatcherId(3));
}

TEST_F(NotificationDispatcherManagerTest, DispatchRowsAreIdempotentAndOutliveTheirDispatcher)
{
    Publish("ProcessA", processA);
    const auto a = manager.RegisterDispatcher("ProcessA");
    const NotificationNameId name(7);

    manager.RegisterNotificationDispatch(name, a);
    manager.RegisterNotificationDispatch(name, a);
    EXPECT_TRUE(manager.ContainsNotificationDispatch(name, a));
    EXPECT_TRUE(manager.HasDispatcherFor(name));

    manager.UnregisterDispatcher(a);
    EXPECT_TRUE(manager.ContainsNotificationDispatch(name, a));

    manager.UnregisterNotificationDispatch(name, a);
    EXPECT_FALSE(manager.HasDispatcherFor(name));
    EXPECT_THAT([&] { manager.UnregisterNotificationDispatch(name, a); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    "NotificationDispatchingRepository: Tried to remove unknown: notificationNameId=7, "
                    "dispatcherId=1"));
}

TEST_F(NotificationDispatcherManagerTest,
       TheBrokerThreadDeliversByNameToDispatchersFoundThroughTheServiceManager)
{
    Publish("ProcessA", processA);
    Publish("ProcessB", processB);
    NotificationNameRepository names;
    Internal::ThreadSafeQueue<Notification> queue(8);
    const auto a = manager.RegisterDispatcher("ProcessA");
    const auto b = manager.RegisterDispatcher("ProcessB");
    const auto nameA = names.AddOrGetId("A");
    const auto nameAB = names.AddOrGetId("A.B");
    manager.RegisterNotificationDispatch(nameAB, b);
    manager.RegisterNotificationDispatch(nameA, a);
    manager.RegisterNotificationDispatch(nameAB, a);

    auto thread = std::make_unique<NotificationBrokerThread>(names, manager.GetDispatcherRepository(),
                                                             manager.GetDispatchTable(), queue);
    const auto send = [&](std::uint64_t id, const char* name)
    {
        ASSERT_TRUE(queue.TryPush(std::make_shared<Notification>(
            NotificationId(id), names.AddOrGetId(name), Kiv::DateTime::GetUtcNow(), Severity::Info,
            PayloadTypeId(1), std::vector<TulVariant<512>>{})));
    };
    send(1, "A.B.C");
    send(2, "A");
    thread->Start();
    ASSERT_TRUE(WaitFor([&] { return deliveries.Get().size() == 3; }));

    const auto got = deliveries.Get();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].dispatcher, "A");
    EXPECT_EQ(got[0].notificationId, 1u);
    EXPECT_THAT(got[0].nameIds, ElementsAre(nameA.GetValue(), nameAB.GetValue()));
    EXPECT_EQ(got[1].dispatcher, "B");
    EXPECT_EQ(got[1].notificationId, 1u);
    EXPECT_THAT(got[1].nameIds, ElementsAre(nameAB.GetValue()));
    EXPECT_EQ(got[2].dispatcher, "A");
    EXPECT_EQ(got[2].notificationId, 2u);
    EXPECT_THAT(got[2].nameIds, ElementsAre(nameA.GetValue()));
    thread.reset();
}
}  // namespace
