#include <Nm/AppDomainSingleton.h>
#include <Nm/Internal/NotificationDispatcher/NotificationDispatcher.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceImpl.h>
#include <Nm/Services/ServiceValues.h>

namespace Kiv::System::Nm::Services::Internal
{
namespace
{
Nm::Internal::NotificationDispatcher::NotificationDispatcher& Dispatcher()
{
    return AppDomainSingleton<Nm::Internal::NotificationDispatcher::NotificationDispatcher>::GetInstance();
}
}  // namespace

void NotificationDispatcherServiceImpl::Dispatch(const Notification& notification,
                                                 const std::vector<std::uint32_t>& nameIds)
{
    Dispatcher().Dispatch(notification, ConvertRawIdsToIdTypes<NotificationNameId>(nameIds));
}
}  // namespace Kiv::System::Nm::Services::Internal
