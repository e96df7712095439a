#pragma once

#include <Nm/AppDomainSingleton.h>
#include <Nm/GenericPayload.h>
#include <Nm/INotificationSubscriber.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/Internal/NotificationDispatcher/NotificationDispatcher.h>
#include <Nm/Notification.h>
#include <Nm/StringPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/DateTime.h>
#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Kiv::Testing
{
/// A broker and, if asked for, a dispatcher in this process's AppDomain "ProcessA", torn down in the
/// order of a real process: dispatcher, broker, AppDomain, then the published services.
class InProcessSystem
{
public:
    using NotificationBroker = System::Nm::Internal::NotificationBroker::NotificationBroker;
    using NotificationDispatcher = System::Nm::Internal::NotificationDispatcher::NotificationDispatcher;

    explicit InProcessSystem(std::uint32_t queueLength = 64, bool withDispatcher = true)
    {
        System::Commons::AppDomain::Create("ProcessA");
        System::Nm::AppDomainSingleton<NotificationBroker>::CreateInstance(queueLength);
        if (withDispatcher)
        {
            System::Nm::AppDomainSingleton<NotificationDispatcher>::CreateInstance();
        }
    }
    InProcessSystem(const InProcessSystem&) = delete;
    InProcessSystem& operator=(const InProcessSystem&) = delete;
    ~InProcessSystem()
    {
        // Disposing what isn't there does nothing.
        System::Nm::AppDomainSingleton<NotificationDispatcher>::DisposeInstance();
        System::Nm::AppDomainSingleton<NotificationBroker>::DisposeInstance();
        System::Commons::AppDomain::Dispose();
        Kiv::System::Tul::Testing::UseNewTransport();
    }

    static NotificationBroker& Broker()
    {
        return System::Nm::AppDomainSingleton<NotificationBroker>::GetInstance();
    }
    static NotificationDispatcher& Dispatcher()
    {
        return System::Nm::AppDomainSingleton<NotificationDispatcher>::GetInstance();
    }
};

/// Registers `name` at the broker for a StringPayload, sender "Test", severity Info.
inline System::Nm::NotificationNameId Register(const char* name)
{
    return InProcessSystem::Broker().RegisterNotification(name, "Test", System::Nm::Severity::Info,
                                                          System::Nm::StringPayload::GetPayloadTypeId());
}

/// Sends `text` on `id` straight to the broker.
inline System::Nm::NotificationId Send(System::Nm::NotificationNameId id, const char* text)
{
    return InProcessSystem::Broker().SendNotification(id, DateTime::GetUtcNow(),
                                                      System::Nm::StringPayload(text));
}

/// The message of what the call raised as an ArgumentException.
inline std::string Refusal(const std::function<void()>& call)
{
    try
    {
        call();
    }
    catch (const ArgumentException& e)
    {
        return e.GetMessage();
    }
    return "not refused";
}

/// What a subscriber saw of one notification.
struct Received
{
    std::uint32_t nameId = 0;
    std::uint64_t id = 0;
    System::Nm::Severity severity{};
    std::uint16_t payloadTypeId = 0;
    std::string text;
};

/// Keeps what it is notified of; optionally runs an action (which may throw) on each call.
class RecordingSubscriber : public System::Nm::INotificationSubscriber
{
public:
    explicit RecordingSubscriber(std::function<void(const System::Nm::Notification&)> action = {})
        : action(std::move(action))
    {
    }
    void Notify(const System::Nm::Notification& n) override
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            list.push_back({n.GetNotificationNameId().GetValue(), n.GetId().GetValue(), n.GetSeverity(),
                            n.GetPayloadTypeId().GetValue(), System::Nm::GenericPayload(n).ToString()});
        }
        if (action)
        {
            action(n);
        }
    }
    std::vector<Received> Get() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return list;
    }
    std::size_t Count() const { return Get().size(); }

private:
    std::function<void(const System::Nm::Notification&)> action;
    mutable std::mutex mutex;
    std::vector<Received> list;
};
}  // namespace Kiv::Testing
