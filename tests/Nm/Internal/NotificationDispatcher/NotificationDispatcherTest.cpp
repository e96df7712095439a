// This process's dispatcher with the broker in one process: how the broker finds it, delivery to its
// subscribers when some of them fail or leave, refusals, and its end during a delivery. Subscribers are
// declared before the system, so that the dispatcher is gone before them.

#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceFactory.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>

#include <Support/InProcessSystem.h>
#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>

using namespace Kiv::System::Nm;
using Kiv::System::Commons::Logging::CapturingSink;
using namespace Kiv::Testing;
using ::testing::HasSubstr;

TEST(NotificationDispatcherTest, TheBrokerFetchesADispatcherByNameAndKeepsItsRowsUntilRemoved)
{
    InProcessSystem system;
    auto& broker = InProcessSystem::Broker();
    using namespace Services::Internal;
    EXPECT_THROW(broker.RegisterDispatcher("Nobody"), Kiv::InvalidOperationException);
    Kiv::System::Tul::ServiceManager::PublishService(
        "Wrong", NotificationDispatcherServiceProxyFactory::GetInstance().GetServiceName(),
        NotificationSendingServiceFactory::GetInstance());
    EXPECT_THAT([&] { broker.RegisterDispatcher("Wrong"); },
                ::testing::ThrowsMessage<Kiv::InvalidCastException>(
                    "The service does not implement service interface "
                    "'Kiv.System.Nm.Services.Internal.INotificationDispatcherService'."));

    // This process's dispatcher has id 1: the refusals used up none.
    const auto name = Register("A.B");
    const auto second = broker.RegisterDispatcher("ProcessA");
    EXPECT_EQ(second, NotificationDispatcherId(2));
    broker.RegisterNotificationDispatch(name, second);
    broker.RegisterNotificationDispatch(name, second);  // twice is harmless
    broker.UnregisterDispatcher(second);
    EXPECT_TRUE(broker.ContainsNotificationDispatch(name, second)) << "the rows outlive their dispatcher";
    EXPECT_EQ(broker.RegisterDispatcher("ProcessA"), NotificationDispatcherId(3)) << "an id is never reused";
    broker.UnregisterDispatcher(NotificationDispatcherId(3));
    broker.UnregisterNotificationDispatch(name, second);
    EXPECT_THAT([&] { broker.UnregisterNotificationDispatch(name, second); },
                ::testing::ThrowsMessage<Kiv::InvalidOperationException>(
                    fmt::format("NotificationDispatchingRepository: Tried to remove unknown: "
                                "notificationNameId={}, dispatcherId=2",
                                name)));
}

TEST(NotificationDispatcherTest, AThrowingOrLeavingSubscriberLeavesTheOthersCalledOnceEach)
{
    CapturingSink log;
    RecordingSubscriber throwsException([](const Notification&) { throw Kiv::Exception("broken part"); });
    RecordingSubscriber throwsStd([](const Notification&) { throw std::runtime_error("std failure"); });
    RecordingSubscriber throwsInt([](const Notification&) { throw 42; });
    std::function<void()> leave;
    RecordingSubscriber leaving([&](const Notification&) { leave(); });
    RecordingSubscriber last;
    RecordingSubscriber reports;
    InProcessSystem system;
    auto& broker = InProcessSystem::Broker();
    auto& dispatcher = InProcessSystem::Dispatcher();
    const auto id = Register("A.B");
    leave = [&] { dispatcher.Unsubscribe(id, &leaving); };
    for (auto* subscriber : {&throwsException, &throwsStd, &throwsInt, &leaving, &last})
    {
        dispatcher.Subscribe("A.B", subscriber);
    }
    dispatcher.Subscribe("Kiv.System.Nm", &reports);
    dispatcher.Subscribe("A", &last);  // called once all the same
    broker.StartDispatching();

    Send(id, "one");
    Send(id, "two");
    ASSERT_TRUE(WaitFor([&] { return reports.Count() == 6 && last.Count() == 2; }));
    EXPECT_EQ(leaving.Count(), 1u);
    const auto received = reports.Get();
    EXPECT_EQ(broker.GetNotificationName(NotificationNameId(received[0].nameId)),
              "Kiv.System.Nm.ExceptionDuringNotify.ProcessA");
    for (const auto& report : received)
    {
        EXPECT_EQ(report.nameId, dispatcher.GetExceptionNotificationNameId().GetValue());
        EXPECT_EQ(report.severity, Severity::Error);
        EXPECT_THAT(report.text, HasSubstr("Caught an exception during dispatching notification 'A.B': "));
    }
    EXPECT_THAT(received[0].text, HasSubstr("broken part"));
    EXPECT_THAT(received[1].text, ::testing::EndsWith("std failure"));
    EXPECT_THAT(received[2].text, ::testing::EndsWith("unknown exception type"));
    EXPECT_EQ(log.GetRecords("Kiv.System.Nm.Internal.NotificationDispatcher.NotificationDispatcher").size(),
              6u);
}

TEST(NotificationDispatcherTest, BadArgumentsAreRefusedAndTheDispatchRowStaysWhileASubscriberIsLeft)
{
    RecordingSubscriber subscriber;
    RecordingSubscriber stranger;
    InProcessSystem system;
    auto& broker = InProcessSystem::Broker();
    auto& dispatcher = InProcessSystem::Dispatcher();
    const auto id = dispatcher.Subscribe("A.B", &subscriber);
    EXPECT_EQ(Refusal([&] { dispatcher.Subscribe("A.B", &subscriber); }),
              "The supplied subscriber is already subscribed to this notification. (argument "
              "'notificationName', value 'A.B')");
    EXPECT_EQ(Refusal([&] { dispatcher.Unsubscribe(id, &stranger); }),
              fmt::format("The supplied subscriber is not subscribed to the referenced notification \"A.B\". "
                          "(argument 'notificationNameId', value '{}')",
                          id));
    EXPECT_THAT(Refusal([&] { dispatcher.Subscribe("A.B", nullptr); }),
                HasSubstr("The supplied pointer is invalid."));
    EXPECT_THAT(Refusal([&] { dispatcher.Subscribe(std::string(512, 'L').c_str(), &stranger); }),
                HasSubstr("Input string is too long"));
    EXPECT_NO_THROW(dispatcher.UnsubscribeFromAll(nullptr));

    // The broker keeps the dispatch row while any subscriber of the name is left.
    dispatcher.Subscribe("A.B", &stranger);
    dispatcher.Unsubscribe(id, &subscriber);
    EXPECT_TRUE(broker.ContainsNotificationDispatch(id, dispatcher.GetDispatcherId()));
    dispatcher.UnsubscribeFromAll(&stranger);
    EXPECT_FALSE(broker.ContainsNotificationDispatch(id, dispatcher.GetDispatcherId()));
    EXPECT_FALSE(dispatcher.HasSubscribersFor(id));
}

TEST(NotificationDispatcherTest, ADispatcherThatGoesWaitsForTheDeliveryInProgress)
{
    std::atomic<bool> entered{false}, release{false}, disposed{false};
    RecordingSubscriber slow(
        [&](const Notification&)
        {
            entered = true;
            WaitFor([&] { return release.load(); });
        });
    InProcessSystem system;
    const auto id = Register("A.B");
    InProcessSystem::Dispatcher().Subscribe("A.B", &slow);
    InProcessSystem::Broker().StartDispatching();
    Send(id, "one");
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    std::thread disposer(
        [&]
        {
            AppDomainSingleton<InProcessSystem::NotificationDispatcher>::DisposeInstance();
            disposed = true;
        });
    // While the subscriber runs, the dispatcher's members stay; a dispatcher that went at once would
    // leave the broker's thread inside a destroyed object (the sanitizers report it).
    EXPECT_FALSE(WaitFor([&] { return disposed.load(); }, std::chrono::milliseconds(200)));
    release = true;
    disposer.join();
    EXPECT_TRUE(disposed);
    EXPECT_EQ(slow.Count(), 1u);
}
