#pragma once

#include <Nm/Services/TulServiceFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
class NotificationDispatcherServiceImpl;

/// Makes the server side of INotificationDispatcherService.
class KIV_API NotificationDispatcherServiceFactory : public TulServiceFactoryBase
{
public:
    static NotificationDispatcherServiceFactory& GetInstance();

    Tul::ITulService* CreateServiceImpl(const char* providerName,
                                        Tul::ITulAuthorizator* authorizator) override;
    Tul::ITulServiceStub* CreateServiceStub(const char* providerName,
                                            Tul::ITulAuthorizator* authorizator) override;

private:
    NotificationDispatcherServiceFactory();
    NotificationDispatcherServiceImpl* CreateService(const char* providerName,
                                                     Tul::ITulAuthorizator* authorizator) const;

    // Exists from the loading of the library on, so that no publication outlives its factory.
    static NotificationDispatcherServiceFactory instance;
};
}  // namespace Kiv::System::Nm::Services::Internal
