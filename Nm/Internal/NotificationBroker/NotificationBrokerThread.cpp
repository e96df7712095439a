#include <Nm/Internal/NotificationBroker/NotificationBrokerThread.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatcherRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>
#include <Nm/Notification.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>

#include <Kiv/Exception.h>

#include <exception>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Commons::Logging::LogLevel;
using Commons::Threading::MakeDelegate;
using Commons::Threading::ThreadSettings;

namespace
{
ThreadSettings BrokerThreadSettings()
{
    ThreadSettings settings;
    settings.name = NotificationBrokerThread::ThreadName;
    return settings;
}
}  // namespace

NotificationBrokerThread::NotificationBrokerThread(const NotificationNameRepository& names,
                                                   const NotificationDispatcherRepository& dispatchers,
                                                   const NotificationDispatchingRepository& dispatchTable,
                                                   ThreadSafeQueue<Notification>& queue)
    : names(names),
      dispatchers(dispatchers),
      dispatchTable(dispatchTable),
      queue(queue),
      thread(MakeDelegate(this, &NotificationBrokerThread::DispatchNotifications), nullptr,
             BrokerThreadSettings())
{
}

NotificationBrokerThread::~NotificationBrokerThread()
{
    try
    {
        StopNotificationBrokerThread();
    }
    catch (...)
    {
        // A thread that can't be stopped would deliver into destroyed tables.
        std::terminate();
    }
}

void NotificationBrokerThread::Start()
{
    thread.Start();
}

void NotificationBrokerThread::StopNotificationBrokerThread()
{
    // Unconditional, also for a thread that never ran: behind a full queue that nobody drains this
    // waits for good, so a host that must stop whatever happens bounds its own shutdown.
    queue.Push(nullptr);
    if (thread.IsJoinable())
    {
        thread.Join();
    }
}

void NotificationBrokerThread::DispatchNotifications(void*)
{
    for (;;)
    {
        try
        {
            std::shared_ptr<Notification> notification = queue.Pop();
            if (notification == nullptr)
            {
                return;
            }
            DispatchOne(*notification);
        }
        catch (const Exception& e)
        {
            Log(LogLevel::Error, "Caught exception during notification dispatch: {0}", e.ToString());
        }
        catch (const std::exception& e)
        {
            Log(LogLevel::Error, "Caught exception during notification dispatch: {0}", e.what());
        }
        catch (...)
        {
            Log(LogLevel::Error, "Caught unknown exception during notification dispatch.");
        }
    }
}

void NotificationBrokerThread::DispatchOne(const Notification& notification)
{
    const std::vector<NotificationNameId> ids = names.GetMatchingIds(notification.GetNotificationNameId());
    const NotificationDispatchingRepository::Matches matches = dispatchTable.GetMatches(ids);
    for (const auto& [dispatcherId, wantedIds] : matches)
    {
        auto service = dispatchers.GetService(dispatcherId);
        const std::vector<std::uint32_t> nameIds = ConvertIdTypesToRawIds(wantedIds);
        service->Dispatch(notification, nameIds);
    }
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
