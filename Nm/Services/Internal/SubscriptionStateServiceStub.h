#pragma once

#include <Nm/Services/Internal/SubscriptionStateServiceImpl.h>
#include <Nm/Services/TulServiceStubBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The server end of ISubscriptionStateService: one member per operation, chosen by the method id.
class SubscriptionStateServiceStub : public TulServiceStubBase<SubscriptionStateServiceImpl>
{
public:
    explicit SubscriptionStateServiceStub(SubscriptionStateServiceImpl* service);

    void Invoke(int methodId, Tul::TulServerContext& context) override;

private:
    void IsChecked(Tul::TulServerContext& context);
    void SetStateChecked(Tul::TulServerContext& context);
    void SetStateRelaxed(Tul::TulServerContext& context);
};
}  // namespace Kiv::System::Nm::Services::Internal
