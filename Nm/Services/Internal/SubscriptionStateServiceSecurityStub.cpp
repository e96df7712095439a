#include <Nm/Services/Internal/SubscriptionStateServiceProxyFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceSecurityStub.h>

namespace Kiv::System::Nm::Services::Internal
{
SubscriptionStateServiceSecurityStub::SubscriptionStateServiceSecurityStub(
    const char* providerName, Tul::ITulAuthorizator* authorizator)
    : TulServiceSecurityStubBase(
          providerName, SubscriptionStateServiceProxyFactory::GetInstance().GetServiceName(), authorizator)
{
}

bool SubscriptionStateServiceSecurityStub::IsChecked()
{
    authorizator.AuthorizeServiceInvocation("IsChecked");
    return SubscriptionStateServiceImpl::IsChecked();
}

void SubscriptionStateServiceSecurityStub::SetStateChecked()
{
    authorizator.AuthorizeServiceInvocation("SetStateChecked");
    return SubscriptionStateServiceImpl::SetStateChecked();
}

void SubscriptionStateServiceSecurityStub::SetStateRelaxed()
{
    authorizator.AuthorizeServiceInvocation("SetStateRelaxed");
    return SubscriptionStateServiceImpl::SetStateRelaxed();
}
}  // namespace Kiv::System::Nm::Services::Internal
