#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>

namespace Kiv::System::Nm::Services
{
/// The client-side factory of one service: knows the service name and, where the service has one of its
/// own, the provider name.
class KIV_API TulServiceProxyFactoryBase : public Tul::ITulServiceProxyFactory
{
public:
    ~TulServiceProxyFactoryBase() override;

    const char* GetServiceName() const override;
    const char* GetServiceProviderName() const override;

protected:
    TulServiceProxyFactoryBase(String serviceName, String serviceProviderName);

private:
    String serviceName;
    String serviceProviderName;
};
}  // namespace Kiv::System::Nm::Services
