#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceSecurityStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherServiceSecurityStub::NotificationDispatcherServiceSecurityStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
    : TulServiceSecurityStubBase(providerName,
                                 NotificationDispatcherServiceProxyFactory::GetInstance().GetServiceName(),
                                 authorizator)
{
}

void NotificationDispatcherServiceSecurityStub::Dispatch(const Notification& notification,
                                                         const std::vector<std::uint32_t>& nameIds)
{
    authorizator.AuthorizeServiceInvocation("Dispatch");
    return NotificationDispatcherServiceImpl::Dispatch(notification, nameIds);
}
}  // namespace Kiv::System::Nm::Services::Internal
