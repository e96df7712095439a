#include <Nm/Services/TulServiceProxyFactoryBase.h>

#include <utility>

namespace Kiv::System::Nm::Services
{
TulServiceProxyFactoryBase::TulServiceProxyFactoryBase(String serviceName, String serviceProviderName)
    : serviceName(std::move(serviceName)), serviceProviderName(std::move(serviceProviderName))
{
}

TulServiceProxyFactoryBase::~TulServiceProxyFactoryBase() = default;

const char* TulServiceProxyFactoryBase::GetServiceName() const
{
    return serviceName.c_str();
}

const char* TulServiceProxyFactoryBase::GetServiceProviderName() const
{
    return serviceProviderName.c_str();
}
}  // namespace Kiv::System::Nm::Services
