#pragma once

#include <Nm/Services/Internal/ISubscriptionStateService.h>
#include <Nm/Services/TulServiceProxyBase.h>

namespace Kiv::System::Nm::Services::Internal
{
/// The caller's end of ISubscriptionStateService: each operation is one call with its method id, in the order
/// of the interface.
class SubscriptionStateServiceProxy : public TulServiceProxyBase<ISubscriptionStateService>
{
public:
    SubscriptionStateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                  Tul::TulClient& client);

    void RefreshServiceHandle() override;
    bool IsChecked() override;
    void SetStateChecked() override;
    void SetStateRelaxed() override;
};
}  // namespace Kiv::System::Nm::Services::Internal
