#pragma once

#include <Nm/Services/Internal/ISubscriptionStateService.h>

namespace Kiv::System::Nm::Services::Internal
{
/// Holds nothing: each operation finds the object that does the work at every call and forwards to it.
class SubscriptionStateServiceImpl : public ISubscriptionStateService
{
public:
    bool IsChecked() override;
    void SetStateChecked() override;
    void SetStateRelaxed() override;
};
}  // namespace Kiv::System::Nm::Services::Internal
