#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>

#include <vector>

namespace Kiv::System::Nm::Services
{
/// The server-side factory of one service: its provider name and whether each call passes the security
/// stub are fixed by the concrete factory's constructor.
class KIV_API TulServiceFactoryBase : public Tul::ITulServiceFactory
{
public:
    ~TulServiceFactoryBase() override;

    bool GetUsesSecurityStub() const override;
    const String& GetServiceProviderName() const override;
    /// The operations in the order of the interface: method id 1 is the first.
    const char* GetOperationName(unsigned short methodId) const override;
    const std::vector<const char*>& GetOperationNames() const noexcept { return operationNames; }

protected:
    TulServiceFactoryBase(String serviceProviderName, bool usesSecurityStub,
                          std::vector<const char*> operationNames);

private:
    String serviceProviderName;
    bool usesSecurityStub;
    std::vector<const char*> operationNames;
};
}  // namespace Kiv::System::Nm::Services
