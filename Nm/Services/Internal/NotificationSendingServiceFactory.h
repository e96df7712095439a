#pragma once

#include <Nm/Services/TulServiceFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
class NotificationSendingServiceImpl;

/// Makes the server side of INotificationSendingService.
class KIV_API NotificationSendingServiceFactory : public TulServiceFactoryBase
{
public:
    static NotificationSendingServiceFactory& GetInstance();

    Tul::ITulService* CreateServiceImpl(const char* providerName,
                                        Tul::ITulAuthorizator* authorizator) override;
    Tul::ITulServiceStub* CreateServiceStub(const char* providerName,
                                            Tul::ITulAuthorizator* authorizator) override;

private:
    NotificationSendingServiceFactory();
    NotificationSendingServiceImpl* CreateService(const char* providerName,
                                                  Tul::ITulAuthorizator* authorizator) const;

    // Exists from the loading of the library on, so that no publication outlives its factory.
    static NotificationSendingServiceFactory instance;
};
}  // namespace Kiv::System::Nm::Services::Internal
