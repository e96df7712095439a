#pragma once

#include <Nm/Services/Internal/SubscriptionStateServiceImpl.h>
#include <Nm/Services/TulServiceSecurityStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Asks for the caller's right to each operation, by the operation's name, before the Impl is reached.
class SubscriptionStateServiceSecurityStub : public TulServiceSecurityStubBase<SubscriptionStateServiceImpl>
{
public:
    SubscriptionStateServiceSecurityStub(const char* providerName, Tul::ITulAuthorizator* authorizator);

    bool IsChecked() override;
    void SetStateChecked() override;
    void SetStateRelaxed() override;
};
}  // namespace Kiv::System::Nm::Services::Internal
