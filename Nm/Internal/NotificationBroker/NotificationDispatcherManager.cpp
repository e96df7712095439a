#include <Nm/Internal/NotificationBroker/NotificationDispatcherManager.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>

#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Services::Internal::INotificationDispatcherService;
using Services::Internal::NotificationDispatcherServiceProxyFactory;

INotificationDispatcherManager::~INotificationDispatcherManager() = default;

NotificationDispatcherManager::~NotificationDispatcherManager() = default;

NotificationDispatcherId NotificationDispatcherManager::RegisterDispatcher(const String& dispatcherName)
{
    return dispatchers.Add(dispatcherName, GetNotificationDispatcherService(dispatcherName));
}

void NotificationDispatcherManager::UnregisterDispatcher(NotificationDispatcherId dispatcherId)
{
    dispatchers.Remove(dispatcherId);
}

void NotificationDispatcherManager::RegisterNotificationDispatch(NotificationNameId notificationNameId,
                                                                 NotificationDispatcherId dispatcherId)
{
    if (!dispatchTable.Contains(notificationNameId, dispatcherId))
    {
        dispatchTable.Add(notificationNameId, dispatcherId);
    }
}

void NotificationDispatcherManager::UnregisterNotificationDispatch(NotificationNameId notificationNameId,
                                                                   NotificationDispatcherId dispatcherId)
{
    dispatchTable.Remove(notificationNameId, dispatcherId);
}

bool NotificationDispatcherManager::ContainsNotificationDispatch(NotificationNameId notificationNameId,
                                                                 NotificationDispatcherId dispatcherId)
{
    return dispatchTable.Contains(notificationNameId, dispatcherId);
}

bool NotificationDispatcherManager::HasDispatcherFor(NotificationNameId notificationNameId) const
{
    return dispatchTable.Contains(notificationNameId);
}

std::shared_ptr<INotificationDispatcherService>
NotificationDispatcherManager::GetNotificationDispatcherService(const String& dispatcherName)
{
    // The dispatcher's name is the provider name it published its service under.
    auto service = Services::FetchService<INotificationDispatcherService>(
        dispatcherName, NotificationDispatcherServiceProxyFactory::GetInstance());
    if (!service)
    {
        throw ArgumentException::Create(
            "dispatcherName", dispatcherName,
            "Could not get INotificationDispatcherService for this dispatcher name");
    }
    return service;
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
