// Sends that queue up behind one another go to the broker together, and each ends as if sent alone.

#include <Nm/Internal/NonBlockingNotificationSending/IBatchSending.h>
#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>
#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCall.h>
#include <Nm/Services/Internal/INotificationSendingService.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>
#include <Nm/StringPayload.h>

#include "Support/InProcessSystem.h"
#include "Support/WaitFor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <vector>

using namespace Kiv::System::Nm;
using Internal::BatchedNotification;
using Internal::NotificationBatchAnswer;
using Internal::NonBlockingNotificationSending::IBatchSending;
using Internal::NonBlockingNotificationSending::Proxy;
using Internal::NonBlockingNotificationSending::SendNotificationCall;
using Kiv::DateTime;
using Kiv::Testing::InProcessSystem;
using Kiv::Testing::WaitFor;

namespace
{
std::atomic<int> pauses{0};

void CountPause(unsigned int)
{
    ++pauses;
    Kiv::System::Commons::Threading::Thread::Sleep(1);
}

/// The broker of this process, with the length of each batch counted.
class CountingBrokerSending : public INotificationSending, public IBatchSending
{
public:
    NotificationNameId RegisterNotification(const Kiv::String&, const Kiv::String&, Severity,
                                            PayloadTypeId) override
    {
        return NotificationNameId(0);
    }
    void UnregisterNotification(NotificationNameId) override {}
    NotificationId SendNotification(NotificationNameId id, DateTime time,
                                    const std::vector<TulVariant<512>>& payload) override
    {
        return InProcessSystem::Broker().SendNotification(id, time, payload);
    }
    NotificationId SendNotification(NotificationNameId, DateTime, const IPayload&) override { return {}; }
    NotificationBatchAnswer SendNotifications(const std::vector<BatchedNotification>& batch) override
    {
        batches.push_back(batch.size());  // only the worker calls
        return InProcessSystem::Broker().SendNotifications(batch);
    }

    std::vector<std::size_t> batches;
};
}  // namespace

TEST(BatchSendingTest, ABatchStopsAtAFailureOrAFullQueueAndEveryRecordEndsAsIfSentAlone)
{
    SendNotificationCall::SetSleepFunction(&CountPause);
    CountingBrokerSending sending;
    InProcessSystem system(4, false);  // its thread not started: the queue stays full
    const NotificationNameId name = Kiv::Testing::Register("Batch.A");
    const NotificationNameId gone = Kiv::Testing::Register("Batch.Gone");
    InProcessSystem::Broker().UnregisterNotification(gone);
    const std::string notRegistered = Kiv::Testing::Refusal([&] { Kiv::Testing::Send(gone, "x"); });
    ASSERT_NE(notRegistered, "not refused");
    Proxy proxy(sending, 128);
    const auto send = [&](NotificationNameId id, std::function<std::vector<TulVariant<512>>()> payload)
    {
        auto future = Future<NotificationId>::CreateByPromise();
        proxy.NonBlockingSendNotification(id, DateTime::GetUtcNow(), std::move(payload), future);
        return future;
    };
    const auto text = [] { return StringPayload("x").GetAsRawPayloadType(); };

    // The worker is held by a first send, alone, while the others queue up behind it.
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
    std::vector<Future<NotificationId>> sent{send(name,
                                                  [&]
                                                  {
                                                      entered = true;
                                                      WaitFor([&] { return released.load(); });
                                                      return text();
                                                  })};
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));
    sent.push_back(send(name, text));
    sent.push_back(send(name, text));
    const Future<NotificationId> refused = send(gone, text);
    int builds = 0;
    const Future<NotificationId> broken = send(name,
                                               [&builds]() -> std::vector<TulVariant<512>>
                                               {
                                                   ++builds;
                                                   throw Kiv::InvalidOperationException("no payload");
                                               });
    for (int index = 0; index < 5; ++index)
    {
        sent.push_back(send(name, text));
    }
    released = true;
    // Two of the batch fill the queue behind the first, the unregistered one stops it and goes alone,
    // of the rest one fits, and the next is refused until the thread drains the queue.
    ASSERT_TRUE(WaitFor([] { return pauses.load() > 0; }));
    EXPECT_FALSE(sent[4].HasValue());
    InProcessSystem::Broker().StartDispatching();
    ASSERT_TRUE(WaitFor([&] { return sent.back().HasValue(); }));
    SendNotificationCall::SetSleepFunction(nullptr);

    std::uint64_t last = 0;
    for (const auto& future : sent)
    {
        ASSERT_TRUE(future.HasValue());
        EXPECT_GT(future.GetValue().GetValue(), last);
        last = future.GetValue().GetValue();
    }
    ASSERT_TRUE(refused.HasException());
    EXPECT_EQ(Kiv::Testing::Refusal([&] { refused.CheckForValueAndException(); }), notRegistered);
    ASSERT_TRUE(broken.HasException());
    EXPECT_THROW(broken.CheckForValueAndException(), Kiv::InvalidOperationException);
    EXPECT_EQ(builds, 1);
    // Without the broken one, then from behind the unregistered one; each retry from the refused one.
    ASSERT_GE(sending.batches.size(), 2u);
    EXPECT_EQ(sending.batches[0], 8u);
    EXPECT_EQ(sending.batches[1], 5u);
    EXPECT_TRUE(std::is_sorted(sending.batches.rbegin(), sending.batches.rend()));
}

TEST(BatchSendingTest, TheServiceCarriesABatchAndItsAnswerAcrossTheWire)
{
    auto settings = Kiv::System::Tul::ServiceManager::GetSettings();
    settings.marshalLocalCalls = true;  // as from another process; this process runs this test alone
    Kiv::System::Tul::ServiceManager::Configure(settings);
    Kiv::Testing::RecordingSubscriber received;  // outlives the dispatcher
    InProcessSystem system(3);
    const NotificationNameId name = Kiv::Testing::Register("Batch.A");
    InProcessSystem::Dispatcher().Subscribe("Batch.A", &received);
    const auto service = Services::FetchService<Services::Internal::INotificationSendingService,
                                                Services::Internal::NotificationSendingServiceProxyFactory>();
    ASSERT_TRUE(service);
    const BatchedNotification one{name, DateTime::GetUtcNow(), StringPayload("x").GetAsRawPayloadType()};
    const BatchedNotification unknown{NotificationNameId(999), DateTime::GetUtcNow(), {}};

    NotificationBatchAnswer answer = service->SendNotifications({one, unknown, one});
    EXPECT_EQ(answer.stop, NotificationBatchAnswer::Stop::Failed);
    ASSERT_EQ(answer.ids.size(), 1u);
    answer = service->SendNotifications({one, one, one, one, one});
    EXPECT_EQ(answer.stop, NotificationBatchAnswer::Stop::Refused);
    ASSERT_EQ(answer.ids.size(), 2u);
    EXPECT_EQ(answer.ids[1].GetValue(), answer.ids[0].GetValue() + 1);
    EXPECT_THROW(service->SendNotifications(std::vector<BatchedNotification>(65, one)),
                 Kiv::ArgumentException);

    // Only the refused one took an id; those behind it were not looked at.
    InProcessSystem::Broker().StartDispatching();
    ASSERT_TRUE(WaitFor([&] { return received.Count() == 3; }));
    const std::uint64_t lastTaken = received.Get().back().id;
    answer = service->SendNotifications({one, one});
    ASSERT_EQ(answer.ids.size(), 2u);
    EXPECT_EQ(answer.ids[0].GetValue(), answer.ids[1].GetValue() - 1);
    EXPECT_EQ(answer.ids[0].GetValue(), lastTaken + 2);
    ASSERT_TRUE(WaitFor([&] { return received.Count() == 5; }));
}
