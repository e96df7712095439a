#pragma once

// Doubles for the non-blocking path: a blocking side that records what reaches it and can hold, refuse
// or fail, and a stand-in for the facade that forwards to a Proxy as the facade does.

#include <Nm/INonBlockingNotificationSendingTarget.h>
#include <Nm/INotificationSending.h>
#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Kiv::Testing
{
using namespace Kiv::System::Nm;

struct SentNotification
{
    std::uint32_t nameId;
    std::uint64_t timestamp;
    std::vector<std::string> payload;
};

/// Every call is journaled ("register <name>", "unregister <id>", "send <id>"), then waits while held,
/// then throws if told to. Registrations get ids 1, 2, ...; sends get 0 while refusals are left, else
/// ids 100, 101, ...
class RecordingSending : public INotificationSending
{
public:
    NotificationNameId RegisterNotification(const String& name, const String&, Severity,
                                            PayloadTypeId) override
    {
        Enter("register " + name);
        std::lock_guard<std::mutex> lock(mutex);
        return NotificationNameId(++lastNameId);
    }

    void UnregisterNotification(NotificationNameId id) override
    {
        Enter("unregister " + std::to_string(id.GetValue()));
    }

    NotificationId SendNotification(NotificationNameId id, DateTime timestamp,
                                    const std::vector<TulVariant<512>>& payload) override
    {
        Enter("send " + std::to_string(id.GetValue()));
        std::lock_guard<std::mutex> lock(mutex);
        sent.push_back({id.GetValue(), timestamp.GetRawValue(), {}});
        for (const auto& value : payload)
        {
            sent.back().payload.push_back(value.ToString());
        }
        return NotificationId(refusals > 0 ? (--refusals, 0) : ++lastId);
    }

    NotificationId SendNotification(NotificationNameId, DateTime, const IPayload&) override
    {
        ADD_FAILURE() << "the non-blocking path sends payload vectors only";
        return NotificationId(0);
    }

    /// While held, calls wait in the double (at most a minute, so that a failing test ends).
    void Hold(bool hold = true)
    {
        std::lock_guard<std::mutex> lock(mutex);
        holding = hold;
        changed.notify_all();
    }
    void Release() { Hold(false); }

    void RefuseSends(int count)
    {
        std::lock_guard<std::mutex> lock(mutex);
        refusals = count;
    }

    /// The next call throws through `fail` once it was journaled.
    void FailNext(std::function<void()> fail)
    {
        std::lock_guard<std::mutex> lock(mutex);
        failure = std::move(fail);
    }

    bool WaitForCalls(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(30), [&] { return journal.size() >= count; });
    }

    std::vector<std::string> GetJournal() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return journal;
    }

    std::vector<SentNotification> GetSent() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return sent;
    }

private:
    void Enter(std::string call)
    {
        std::unique_lock<std::mutex> lock(mutex);
        journal.push_back(std::move(call));
        changed.notify_all();
        EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(60), [this] { return !holding; }));
        if (auto fail = std::exchange(failure, nullptr))
        {
            lock.unlock();
            fail();
        }
    }

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> journal;
    std::vector<SentNotification> sent;
    std::function<void()> failure;
    bool holding = false;
    int refusals = 0;
    std::uint32_t lastNameId = 0;
    std::uint64_t lastId = 99;
};

/// Stands in for the facade: the blocking registration goes straight to the blocking side, everything
/// else through the Proxy.
class ProxyFacade : public INonBlockingNotificationSendingTarget
{
public:
    using Proxy = Kiv::System::Nm::Internal::NonBlockingNotificationSending::Proxy;
    using Payload = std::vector<TulVariant<512>>;

    ProxyFacade(INotificationSending& blocking, Proxy& proxy) : blocking(blocking), proxy(proxy) {}

    NotificationNameId RegisterNotification(const String& name, const String& sender, Severity severity,
                                            PayloadTypeId type) override
    {
        return blocking.RegisterNotification(name, sender, severity, type);
    }
    Future<NotificationNameId> NonBlockingRegisterNotification(const String& name, const String& sender,
                                                               Severity severity, PayloadTypeId type) override
    {
        return proxy.NonBlockingRegisterNotification(name, sender, severity, type);
    }
    void NonBlockingRegisterNotification(const String& name, const String& sender, Severity severity,
                                         PayloadTypeId type, Future<NotificationNameId> future) override
    {
        proxy.NonBlockingRegisterNotification(name, sender, severity, type, std::move(future));
    }
    Future<void> NonBlockingUnregisterNotification(NotificationNameId id) override
    {
        return proxy.NonBlockingUnregisterNotification(id);
    }
    void NonBlockingUnregisterNotification(NotificationNameId id, Future<void> future) override
    {
        proxy.NonBlockingUnregisterNotification(id, std::move(future));
    }
    Future<NotificationId> NonBlockingSendNotification(NotificationNameId id, DateTime timestamp,
                                                       const Payload& payload) override
    {
        return proxy.NonBlockingSendNotification(id, timestamp, payload);
    }
    Future<NotificationId> NonBlockingSendNotification(NotificationNameId id, DateTime timestamp,
                                                       const IPayload& payload) override
    {
        return proxy.NonBlockingSendNotification(id, timestamp, payload);
    }
    void NonBlockingSendNotification(NotificationNameId id, DateTime timestamp,
                                     std::function<Payload()> create, Future<NotificationId> future) override
    {
        proxy.NonBlockingSendNotification(id, timestamp, std::move(create), std::move(future));
    }
    void NonBlockingSendNotification(NotificationNameId id, DateTime timestamp, CreatePayloadFunction create,
                                     CreatePayloadFunctorArg arg, Future<NotificationId> future) override
    {
        proxy.NonBlockingSendNotification(id, timestamp, create, std::move(arg), std::move(future));
    }

private:
    INotificationSending& blocking;
    Proxy& proxy;
};
}  // namespace Kiv::Testing
