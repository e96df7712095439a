#pragma once

#include <Nm/Services/TulServiceFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
class NotificationDispatcherManagerServiceImpl;

/// Makes the server side of INotificationDispatcherManagerService.
class KIV_API NotificationDispatcherManagerServiceFactory : public TulServiceFactoryBase
{
public:
    static NotificationDispatcherManagerServiceFactory& GetInstance();

    Tul::ITulService* CreateServiceImpl(const char* providerName,
                                        Tul::ITulAuthorizator* authorizator) override;
    Tul::ITulServiceStub* CreateServiceStub(const char* providerName,
                                            Tul::ITulAuthorizator* authorizator) override;

private:
    NotificationDispatcherManagerServiceFactory();
    NotificationDispatcherManagerServiceImpl* CreateService(const char* providerName,
                                                            Tul::ITulAuthorizator* authorizator) const;

    // Exists from the loading of the library on, so that no publication outlives its factory.
    static NotificationDispatcherManagerServiceFactory instance;
};
}  // namespace Kiv::System::Nm::Services::Internal
