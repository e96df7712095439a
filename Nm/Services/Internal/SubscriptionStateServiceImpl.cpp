#include <Nm/Services/Internal/Broker.h>
#include <Nm/Services/Internal/SubscriptionStateServiceImpl.h>
#include <Nm/Services/ServiceValues.h>

namespace Kiv::System::Nm::Services::Internal
{
bool SubscriptionStateServiceImpl::IsChecked()
{
    return Broker().IsSubscriptionStateChecked();
}

void SubscriptionStateServiceImpl::SetStateChecked()
{
    Broker().SetSubscriptionStateChecked();
}

void SubscriptionStateServiceImpl::SetStateRelaxed()
{
    Broker().SetSubscriptionStateRelaxed();
}
}  // namespace Kiv::System::Nm::Services::Internal
