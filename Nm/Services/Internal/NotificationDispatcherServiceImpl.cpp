#include <Nm/AppDomainSingleton.h>
#include <Nm/Internal/NotificationDispatcher/NotificationDispatcher.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceImpl.h>
#include <Nm/Services/ServiceValues.h>

namespace Kiv::System::Nm::Services::Internal
{
void NotificationDispatcherServiceImpl::Dispatch(const Notification& notification,
                                                 const std::vector<std::uint32_t>& nameIds)
{
    // The ids go on as they came: no converted copy per notification.
    Nm::Internal::NotificationDispatcher::NotificationDispatcher::DispatchToProcessDispatcher(notification,
                                                                                              nameIds);
}

std::vector<DispatchFailure> NotificationDispatcherServiceImpl::DispatchBatch(const NotificationBatch& batch)
{
    return Nm::Internal::NotificationDispatcher::NotificationDispatcher::DispatchBatchToProcessDispatcher(
        batch);
}
}  // namespace Kiv::System::Nm::Services::Internal
