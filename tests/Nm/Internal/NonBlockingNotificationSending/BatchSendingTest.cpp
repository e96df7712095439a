// Sends that queue up behind one another go to the broker together, and each ends as if sent alone.

#include <Nm/Internal/NonBlockingNotificationSending/IBatchSending.h>
#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>
#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCall.h>
#include <Nm/Services/Internal/INotificationSendingService.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>

#include "Support/InProcessSystem.h"
#include "Support/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
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

/// The broker of this process, with the calls counted: single sends, and the length of each batch.
class CountingBrokerSending : public INotificationSending, public IBatchSending
{
public:
    NotificationNameId RegisterNotification(const Kiv::String&, const Kiv::String&, Severity,
                                            PayloadTypeId) override
    {
        return NotificationNameId(0);
    }
    void UnregisterNotification(NotificationNameId) override {}
    NotificationId SendNotification(NotificationNameId nameId, DateTime timestamp,
                                    const std::vector<TulVariant<512>>& payload) override
    {
        ++singles;
        return InProcessSystem::Broker().SendNotification(nameId, timestamp, payload);
    }
    NotificationId SendNotification(NotificationNameId, DateTime, const IPayload&) override
    {
        return NotificationId(0);
    }
    NotificationBatchAnswer SendNotifications(const std::vector<BatchedNotification>& batch) override
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            batches.push_back(batch.size());
        }
        return InProcessSystem::Broker().SendNotifications(batch);
    }
    std::vector<std::size_t> Batches()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return batches;
    }

    std::atomic<int> singles{0};

private:
    std::mutex mutex;
    std::vector<std::size_t> batches;
};

class BatchSendingTest : public ::testing::Test
{
protected:
    void TearDown() override { SendNotificationCall::SetSleepFunction(nullptr); }

    /// A broker with `queueLength`, its thread not started, and a proxy in front of it whose worker is held
    /// by a first send until Release(): the records pushed meanwhile wait together.
    void Start(std::uint32_t queueLength)
    {
        system = std::make_unique<InProcessSystem>(queueLength, false);
        name = Kiv::Testing::Register("Batch.A");
        proxy = std::make_unique<Proxy>(sending, 128);
        Future<NotificationId> gate = Future<NotificationId>::CreateByPromise();
        proxy->NonBlockingSendNotification(
            name, DateTime::GetUtcNow(),
            [this]
            {
                entered = true;
                WaitFor([this] { return released.load(); });
                return StringPayload("gate").GetAsRawPayloadType();
            },
            gate);
        ASSERT_TRUE(WaitFor([this] { return entered.load(); }));
    }
    void Release() { released = true; }
    Future<NotificationId> Send(NotificationNameId id)
    {
        return proxy->NonBlockingSendNotification(id, DateTime::GetUtcNow(), StringPayload("x"));
    }

    CountingBrokerSending sending;
    std::unique_ptr<InProcessSystem> system;
    NotificationNameId name;
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
    // Before the system: its worker sends to the broker.
    std::unique_ptr<Proxy> proxy;
};

void ExpectAscendingIds(const std::vector<Future<NotificationId>>& futures)
{
    std::uint64_t last = 0;
    for (const auto& future : futures)
    {
        ASSERT_TRUE(future.HasValue());
        EXPECT_GT(future.GetValue().GetValue(), last);
        last = future.GetValue().GetValue();
    }
}
}  // namespace

TEST_F(BatchSendingTest, AFullQueueStopsTheBatchAndTheRetryStartsAtTheRefusedOne)
{
    SendNotificationCall::SetSleepFunction(&CountPause);
    pauses = 0;
    Start(4);
    std::vector<Future<NotificationId>> futures;
    for (int index = 0; index < 9; ++index)
    {
        futures.push_back(Send(name));
    }
    Release();
    // The gate and three of the batch fill the queue; the fourth is refused until the thread drains it.
    ASSERT_TRUE(WaitFor([] { return pauses.load() > 0; }));
    EXPECT_FALSE(futures[3].HasValue());
    InProcessSystem::Broker().StartDispatching();
    ASSERT_TRUE(WaitFor([&] { return futures.back().HasValue(); }));

    ExpectAscendingIds(futures);
    const std::vector<std::size_t> batches = sending.Batches();
    ASSERT_FALSE(batches.empty());
    EXPECT_EQ(batches[0], 9u);
    // Every retry begins at the refused one: the batches shrink and never grow.
    for (std::size_t index = 1; index < batches.size(); ++index)
    {
        EXPECT_LE(batches[index], batches[index - 1]);
    }
}

TEST_F(BatchSendingTest, AFailingRecordGetsWhatASingleSendGivesAndTheOthersAreSent)
{
    Start(64);
    const NotificationNameId gone = Kiv::Testing::Register("Batch.Gone");
    InProcessSystem::Broker().UnregisterNotification(gone);
    const std::string notRegistered = Kiv::Testing::Refusal([&] { Kiv::Testing::Send(gone, "x"); });
    ASSERT_NE(notRegistered, "not refused");

    int builds = 0;
    std::vector<Future<NotificationId>> sent;
    sent.push_back(Send(name));
    sent.push_back(Send(name));
    const Future<NotificationId> refused = Send(gone);
    const Future<NotificationId> broken = Future<NotificationId>::CreateByPromise();
    proxy->NonBlockingSendNotification(
        name, DateTime::GetUtcNow(),
        [&builds]() -> std::vector<TulVariant<512>>
        {
            ++builds;
            throw Kiv::InvalidOperationException("no payload today");
        },
        broken);
    sent.push_back(Send(name));
    sent.push_back(Send(name));
    Release();
    ASSERT_TRUE(WaitFor([&] { return sent.back().HasValue(); }));

    ExpectAscendingIds(sent);
    ASSERT_TRUE(refused.HasException());
    EXPECT_EQ(Kiv::Testing::Refusal([&] { refused.CheckForValueAndException(); }), notRegistered);
    ASSERT_TRUE(broken.HasException());
    EXPECT_THROW(broken.CheckForValueAndException(), Kiv::InvalidOperationException);
    EXPECT_EQ(builds, 1);
    // The batch went without the broken one, stopped at the unregistered one, which went alone, and
    // the two behind it went together.
    EXPECT_EQ(sending.Batches(), (std::vector<std::size_t>{5, 2}));
    EXPECT_EQ(sending.singles.load(), 2);
}

TEST(BatchSendingServiceTest, TheServiceCarriesABatchAndItsAnswerAcrossTheWire)
{
    // Local calls go through the wire form as remote ones do, for this test only.
    struct Marshalled
    {
        static void Set(bool on)
        {
            auto settings = Kiv::System::Tul::ServiceManager::GetSettings();
            settings.marshalLocalCalls = on;
            Kiv::System::Tul::ServiceManager::Configure(settings);
        }
        Marshalled() { Set(true); }
        ~Marshalled() { Set(false); }
    } marshalled;
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
