#include <Nm/Services/TulServiceFactoryBase.h>

#include <utility>

namespace Kiv::System::Nm::Services
{
TulServiceFactoryBase::TulServiceFactoryBase(String serviceProviderName, bool usesSecurityStub)
    : serviceProviderName(std::move(serviceProviderName)), usesSecurityStub(usesSecurityStub)
{
}

TulServiceFactoryBase::~TulServiceFactoryBase() = default;

bool TulServiceFactoryBase::GetUsesSecurityStub() const
{
    return usesSecurityStub;
}

const String& TulServiceFactoryBase::GetServiceProviderName() const
{
    return serviceProviderName;
}
}  // namespace Kiv::System::Nm::Services
