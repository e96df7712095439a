#include <Nm/Services/Internal/ISubscriptionStateService.h>

namespace Kiv::System::Nm::Services::Internal
{
ISubscriptionStateService::~ISubscriptionStateService() = default;
}
