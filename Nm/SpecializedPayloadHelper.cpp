#include <Nm/AppDomainSingleton.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/NotificationManager.h>
#include <Nm/SpecializedPayloadHelper.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/Singleton.h>

namespace Kiv::System::Nm
{
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
