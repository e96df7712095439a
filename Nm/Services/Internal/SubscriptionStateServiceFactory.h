#pragma once

#include <Nm/Services/TulServiceFactoryBase.h>

#include <Kiv/Export.h>

namespace Kiv::System::Nm::Services::Internal
{
class SubscriptionStateServiceImpl;

/// Makes the server side of ISubscriptionStateService.
class KIV_API SubscriptionStateServiceFactory : public TulServiceFactoryBase
{
public:
    static SubscriptionStateServiceFactory& GetInstance();

    Tul::ITulService* CreateServiceImpl(const char* providerName,
                                        Tul::ITulAuthorizator* authorizator) override;
    Tul::ITulServiceStub* CreateServiceStub(const char* providerName,
                                            Tul::ITulAuthorizator* authorizator) override;

private:
    SubscriptionStateServiceFactory();
    SubscriptionStateServiceImpl* CreateService(const char* providerName,
                                                Tul::ITulAuthorizator* authorizator) const;

    // Exists from the loading of the library on, so that no publication outlives its factory.
    static SubscriptionStateServiceFactory instance;
};
}  // namespace Kiv::System::Nm::Services::Internal
