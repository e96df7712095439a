#include <Nm/AppDomainSingleton.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/Services/Internal/SubscriptionStateServiceImpl.h>
#include <Nm/Services/ServiceValues.h>

namespace Kiv::System::Nm::Services::Internal
{
namespace
{
Nm::Internal::NotificationBroker::NotificationBroker& Broker()
{
    return AppDomainSingleton<Nm::Internal::NotificationBroker::NotificationBroker>::GetInstance();
}
}  // namespace

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
