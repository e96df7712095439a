#include <Nm/AppDomainSingleton.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/NotificationManager.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Singleton.h>

namespace Kiv::System::Nm::Internal
{
using Broker = NotificationBroker::NotificationBroker;

namespace
{
bool HasAppDomain()
{
    return Commons::Singleton<Commons::AppDomain>::pInstance != nullptr;
}
}  // namespace

NotificationManagerSetup::NotificationManagerSettings NotificationManagerSetup::LoadSettingsFromFile(
    const String& path)
{
    return NotificationManagerSettings::LoadFromFile(path);
}

void NotificationManagerSetup::SetupWithoutNotificationBroker(const NotificationManagerSettings& settings)
{
    AppDomainSingleton<NotificationManager>::CreateInstance(
        settings.GetNonBlockingNotificationSendingProxyQueueLength());
}

void NotificationManagerSetup::SetupWithoutNotificationBroker(const String& path)
{
    SetupWithoutNotificationBroker(LoadSettingsFromFile(path));
}

void NotificationManagerSetup::SetupWithNotificationBroker(const NotificationManagerSettings& settings)
{
    AppDomainSingleton<Broker>::CreateInstance(settings.GetNotificationBrokerQueueLength());
    SetupWithoutNotificationBroker(settings);
}

void NotificationManagerSetup::SetupWithNotificationBroker(const String& path)
{
    SetupWithNotificationBroker(LoadSettingsFromFile(path));
}

void NotificationManagerSetup::StartDispatching()
{
    if (!HasAppDomain() || !AppDomainSingleton<Broker>::IsCreated())
    {
        return;
    }
    AppDomainSingleton<Broker>::GetInstance().StartDispatching();
}

void NotificationManagerSetup::Dispose()
{
    if (!HasAppDomain())
    {
        throw Exception("Singleton instance of type '{0}' was not created yet!",
                        TypeName<Commons::AppDomain>());
    }
    AppDomainSingleton<NotificationManager>::DisposeInstance();
    if (!HasAppDomain() || !AppDomainSingleton<Broker>::IsCreated())
    {
        return;
    }
    AppDomainSingleton<Broker>::DisposeInstance();
}
}  // namespace Kiv::System::Nm::Internal
