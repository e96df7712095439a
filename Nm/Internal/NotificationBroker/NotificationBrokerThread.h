#pragma once

#include <Nm/Internal/ThreadSafeQueue.h>

#include <Kiv/Export.h>
#include <Kiv/Logging/Loggable.h>
#include <Kiv/Threading/Thread.h>

namespace Kiv::System::Nm
{
class Notification;
}

namespace Kiv::System::Nm::Internal::NotificationBroker
{
class NotificationNameRepository;
class NotificationDispatcherRepository;
class NotificationDispatchingRepository;

/// The one delivery thread of the system: takes each notification from the queue and makes one Dispatch
/// call per interested dispatcher, in ascending dispatcher id. Holds no lock while it delivers.
class KIV_API NotificationBrokerThread
    : private Commons::Logging::Loggable<NotificationBrokerThread, false, false>
{
public:
    static constexpr const char* ThreadName = "NotificationBrokerThread";

    NotificationBrokerThread(const NotificationNameRepository& names,
                             const NotificationDispatcherRepository& dispatchers,
                             const NotificationDispatchingRepository& dispatchTable,
                             ThreadSafeQueue<Notification>& queue);
    NotificationBrokerThread(const NotificationBrokerThread&) = delete;
    NotificationBrokerThread& operator=(const NotificationBrokerThread&) = delete;
    /// Delivers what is queued ahead of the stop marker, then joins. A thread that never ran is not
    /// joined and the queue keeps what it holds.
    virtual ~NotificationBrokerThread();

    void Start();

private:
    void DispatchNotifications(void*);
    void DispatchOne(const Notification& notification);
    void StopNotificationBrokerThread();

    const NotificationNameRepository& names;
    const NotificationDispatcherRepository& dispatchers;
    const NotificationDispatchingRepository& dispatchTable;
    ThreadSafeQueue<Notification>& queue;
    Commons::Threading::Thread thread;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
