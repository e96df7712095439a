#include <Nm/Services/Internal/NotificationDispatcherManagerServiceFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceSecurityStub.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
NotificationDispatcherManagerServiceFactory NotificationDispatcherManagerServiceFactory::instance;

NotificationDispatcherManagerServiceFactory::NotificationDispatcherManagerServiceFactory()
    : TulServiceFactoryBase("Kiv", false,
                            {"RegisterDispatcher", "UnregisterDispatcher", "RegisterNotificationDispatch",
                             "UnregisterNotificationDispatch", "ContainsNotificationDispatch"})
{
}

NotificationDispatcherManagerServiceFactory& NotificationDispatcherManagerServiceFactory::GetInstance()
{
    return instance;
}

NotificationDispatcherManagerServiceImpl* NotificationDispatcherManagerServiceFactory::CreateService(
    const char* providerName, Tul::ITulAuthorizator* authorizator) const
{
    if (!GetUsesSecurityStub())
    {
        return new NotificationDispatcherManagerServiceImpl;
    }
    return new NotificationDispatcherManagerServiceSecurityStub(providerName, authorizator);
}

Tul::ITulService* NotificationDispatcherManagerServiceFactory::CreateServiceImpl(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
{
    return CreateService(providerName, authorizator);
}

Tul::ITulServiceStub* NotificationDispatcherManagerServiceFactory::CreateServiceStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
{
    return new NotificationDispatcherManagerServiceStub(CreateService(providerName, authorizator));
}
}  // namespace Kiv::System::Nm::Services::Internal
