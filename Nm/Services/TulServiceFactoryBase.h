#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>

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

protected:
    TulServiceFactoryBase(String serviceProviderName, bool usesSecurityStub);

private:
    String serviceProviderName;
    bool usesSecurityStub;
};
}  // namespace Kiv::System::Nm::Services
