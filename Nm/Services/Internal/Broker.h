#pragma once

#include <Nm/AppDomainSingleton.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>

namespace Kiv::System::Nm::Services
{
/// The broker of this process, found at every call: the services' Impls hold nothing.
inline Nm::Internal::NotificationBroker::NotificationBroker& Broker()
{
    return AppDomainSingleton<Nm::Internal::NotificationBroker::NotificationBroker>::GetInstance();
}
}  // namespace Kiv::System::Nm::Services
