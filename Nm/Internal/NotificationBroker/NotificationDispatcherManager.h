#pragma once

#include <Nm/Internal/NotificationBroker/INotificationDispatcherManager.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatcherRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>

#include <Kiv/Export.h>

#include <memory>

#include <sys/types.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// Owns the dispatcher table and the dispatch table. The two are linked only by the dispatcher id, and
/// no operation changes both atomically.
class KIV_API NotificationDispatcherManager : public INotificationDispatcherManager
{
public:
    NotificationDispatcherManager() = default;
    ~NotificationDispatcherManager() override;

    /// Fetches the dispatcher's service under its name, then gives it an id.
    NotificationDispatcherId RegisterDispatcher(const String& dispatcherName) override;
    /// As above, for the dispatcher of process `pid`: a delivery that failed is tried on a connection
    /// fetched anew next time, unless that process is stopped, which is told at once without a call.
    NotificationDispatcherId RegisterDispatcher(const String& dispatcherName, pid_t pid);
    /// The dispatcher of a process that has gone, with all its dispatch rows; returns how many rows.
    std::size_t RemoveDispatcher(NotificationDispatcherId dispatcherId);
    /// The dispatch rows of the dispatcher stay.
    void UnregisterDispatcher(NotificationDispatcherId dispatcherId) override;
    /// Doing it twice is harmless.
    void RegisterNotificationDispatch(NotificationNameId notificationNameId,
                                      NotificationDispatcherId dispatcherId) override;
    void UnregisterNotificationDispatch(NotificationNameId notificationNameId,
                                        NotificationDispatcherId dispatcherId) override;
    bool ContainsNotificationDispatch(NotificationNameId notificationNameId,
                                      NotificationDispatcherId dispatcherId) override;

    bool HasDispatcherFor(NotificationNameId notificationNameId) const;
    const NotificationDispatcherRepository& GetDispatcherRepository() const { return dispatchers; }
    const NotificationDispatchingRepository& GetDispatchTable() const { return dispatchTable; }

    /// The service that the dispatcher `dispatcherName` published under its own name.
    static std::shared_ptr<Services::Internal::INotificationDispatcherService>
    GetNotificationDispatcherService(const String& dispatcherName);

private:
    NotificationDispatcherId Fresh(NotificationDispatcherId id);

    NotificationDispatcherRepository dispatchers;
    NotificationDispatchingRepository dispatchTable;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
