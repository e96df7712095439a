#pragma once

#include <Nm/Services/TulServiceFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services
{
class NotificationManagerServiceImpl;

/// Makes the server side of INotificationManagerService, with every call checked by the security stub.
class KIV_API NotificationManagerServiceFactory : public TulServiceFactoryBase
{
public:
    static NotificationManagerServiceFactory& GetInstance();

    Tul::ITulService* CreateServiceImpl(const char* providerName,
                                        Tul::ITulAuthorizator* authorizator) override;
    Tul::ITulServiceStub* CreateServiceStub(const char* providerName,
                                            Tul::ITulAuthorizator* authorizator) override;

private:
    NotificationManagerServiceFactory();
    NotificationManagerServiceImpl* CreateService(const char* providerName,
                                                  Tul::ITulAuthorizator* authorizator) const;

    // Exists from the loading of the library on, so that no publication outlives its factory.
    static NotificationManagerServiceFactory instance;
};
}  // namespace Kiv::System::Nm::Services
