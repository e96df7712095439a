#include <Nm/Services/Internal/SubscriptionStateServiceStub.h>

namespace Kiv::System::Nm::Services::Internal
{
SubscriptionStateServiceStub::SubscriptionStateServiceStub(SubscriptionStateServiceImpl* service)
    : TulServiceStubBase(service)
{
}

void SubscriptionStateServiceStub::Invoke(int methodId, Tul::TulServerContext& context)
{
    switch (methodId)
    {
        case 1:
            return IsChecked(context);
        case 2:
            return SetStateChecked(context);
        case 3:
            return SetStateRelaxed(context);
        default:
            return RefuseUnknownMethod(context);
    }
}

void SubscriptionStateServiceStub::IsChecked(Tul::TulServerContext& context)
{
    Serve<bool>(context, [this]() { return service->IsChecked(); });
}

void SubscriptionStateServiceStub::SetStateChecked(Tul::TulServerContext& context)
{
    Serve<void>(context, [this]() { return service->SetStateChecked(); });
}

void SubscriptionStateServiceStub::SetStateRelaxed(Tul::TulServerContext& context)
{
    Serve<void>(context, [this]() { return service->SetStateRelaxed(); });
}
}  // namespace Kiv::System::Nm::Services::Internal
