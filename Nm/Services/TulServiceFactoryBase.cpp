#include <Nm/Services/TulServiceFactoryBase.h>

#include <utility>

namespace Kiv::System::Nm::Services
{
TulServiceFactoryBase::TulServiceFactoryBase(String serviceProviderName, bool usesSecurityStub,
                                             std::vector<const char*> operationNames)
    : serviceProviderName(std::move(serviceProviderName)),
      usesSecurityStub(usesSecurityStub),
      operationNames(std::move(operationNames))
{
}

const char* TulServiceFactoryBase::GetOperationName(unsigned short methodId) const
{
    return methodId >= 1 && methodId <= operationNames.size() ? operationNames[methodId - 1U] : nullptr;
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
