#include <Nm/AppDomainSingleton.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/NotificationManager.h>
#include <Nm/SpecializedPayloadHelper.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/Singleton.h>

#include <atomic>

namespace Kiv::System::Nm
{
namespace
{
std::atomic<std::uint32_t> setupGeneration{1};
}

std::uint32_t SpecializedPayloadHelper::GetSetupGeneration() noexcept
{
    return setupGeneration.load(std::memory_order_acquire);
}

void SpecializedPayloadHelper::OnNewSetup() noexcept
{
    setupGeneration.fetch_add(1, std::memory_order_acq_rel);
}

INotificationManagerInfo& SpecializedPayloadHelper::GetINotificationManagerInfo()
{
    if (Commons::Singleton<Commons::AppDomain>::pInstance != nullptr)
    {
        using Internal::NotificationBroker::NotificationBroker;
        if (AppDomainSingleton<NotificationManager>::IsCreated())
        {
            return AppDomainSingleton<NotificationManager>::GetInstance();
        }
        if (AppDomainSingleton<NotificationBroker>::IsCreated())
        {
            return AppDomainSingleton<NotificationBroker>::GetInstance();
        }
    }
    throw InvalidOperationException("Cannot access NotificationManager or NotificationBroker!");
}
}  // namespace Kiv::System::Nm
