#pragma once

#include <Nm/Services/TulServiceFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
class NotificationManagerInfoServiceImpl;

/// Makes the server side of INotificationManagerInfoService.
class KIV_API NotificationManagerInfoServiceFactory : public TulServiceFactoryBase
{
public:
    static NotificationManagerInfoServiceFactory& GetInstance();

    Tul::ITulService* CreateServiceImpl(const char* providerName,
                                        Tul::ITulAuthorizator* authorizator) override;
    Tul::ITulServiceStub* CreateServiceStub(const char* providerName,
                                            Tul::ITulAuthorizator* authorizator) override;

private:
    NotificationManagerInfoServiceFactory();
    NotificationManagerInfoServiceImpl* CreateService(const char* providerName,
                                                      Tul::ITulAuthorizator* authorizator) const;

    // Exists from the loading of the library on, so that no publication outlives its factory.
    static NotificationManagerInfoServiceFactory instance;
};
}  // namespace Kiv::System::Nm::Services::Internal
