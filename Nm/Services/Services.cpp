// The singletons of the six services, and the interfaces' destructors, which anchor their type
// information in this library.

#include <Nm/Services/Internal/NotificationDispatcherManagerServiceFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceProxyFactory.h>
#include <Nm/Services/NotificationManagerServiceFactory.h>
#include <Nm/Services/NotificationManagerServiceProxyFactory.h>

// The factory exists from the loading of the library on, so that no publication outlives it; the proxy
// factory is built at the first call, safely against concurrent first calls.
#define KIV_NM_SERVICE_SINGLETONS(Service)                      \
    I##Service::~I##Service() = default;                        \
    namespace                                                   \
    {                                                           \
    Service##Factory the##Service##Factory;                     \
    }                                                           \
    Service##Factory& Service##Factory::GetInstance()           \
    {                                                           \
        return the##Service##Factory;                           \
    }                                                           \
    Service##ProxyFactory& Service##ProxyFactory::GetInstance() \
    {                                                           \
        static Service##ProxyFactory instance;                  \
        return instance;                                        \
    }

namespace Kiv::System::Nm::Services
{
KIV_NM_SERVICE_SINGLETONS(NotificationManagerService)
}

namespace Kiv::System::Nm::Services::Internal
{
KIV_NM_SERVICE_SINGLETONS(NotificationDispatcherManagerService)
KIV_NM_SERVICE_SINGLETONS(NotificationDispatcherService)
KIV_NM_SERVICE_SINGLETONS(NotificationManagerInfoService)
KIV_NM_SERVICE_SINGLETONS(NotificationSendingService)
KIV_NM_SERVICE_SINGLETONS(SubscriptionStateService)
}  // namespace Kiv::System::Nm::Services::Internal
