#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceSecurityStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherManagerServiceSecurityStub::NotificationDispatcherManagerServiceSecurityStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
    : TulServiceSecurityStubBase(
          providerName, NotificationDispatcherManagerServiceProxyFactory::GetInstance().GetServiceName(),
          authorizator)
{
}

std::uint16_t NotificationDispatcherManagerServiceSecurityStub::RegisterDispatcher(
    const TulString<512>& dispatcherName)
{
    authorizator.AuthorizeServiceInvocation("RegisterDispatcher");
    return NotificationDispatcherManagerServiceImpl::RegisterDispatcher(dispatcherName);
}

void NotificationDispatcherManagerServiceSecurityStub::UnregisterDispatcher(std::uint16_t dispatcherId)
{
    authorizator.AuthorizeServiceInvocation("UnregisterDispatcher");
    return NotificationDispatcherManagerServiceImpl::UnregisterDispatcher(dispatcherId);
}

void NotificationDispatcherManagerServiceSecurityStub::RegisterNotificationDispatch(
    std::uint32_t notificationNameId, std::uint16_t dispatcherId)
{
    authorizator.AuthorizeServiceInvocation("RegisterNotificationDispatch");
    return NotificationDispatcherManagerServiceImpl::RegisterNotificationDispatch(notificationNameId,
                                                                                  dispatcherId);
}

void NotificationDispatcherManagerServiceSecurityStub::UnregisterNotificationDispatch(
    std::uint32_t notificationNameId, std::uint16_t dispatcherId)
{
    authorizator.AuthorizeServiceInvocation("UnregisterNotificationDispatch");
    return NotificationDispatcherManagerServiceImpl::UnregisterNotificationDispatch(notificationNameId,
                                                                                    dispatcherId);
}

bool NotificationDispatcherManagerServiceSecurityStub::ContainsNotificationDispatch(
    std::uint32_t notificationNameId, std::uint16_t dispatcherId)
{
    authorizator.AuthorizeServiceInvocation("ContainsNotificationDispatch");
    return NotificationDispatcherManagerServiceImpl::ContainsNotificationDispatch(notificationNameId,
                                                                                  dispatcherId);
}
}  // namespace Kiv::System::Nm::Services::Internal
