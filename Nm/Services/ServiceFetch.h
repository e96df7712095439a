#pragma once

#include <Nm/TypeName.h>

#include <Kiv/BasicString.h>
#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <memory>

namespace Kiv::System::Nm::Services
{
/// The service `TService` of `providerName`, fetched once by its user and kept for good. Raises
/// InvalidOperationException when the provider or service can't be reached and InvalidCastException when
/// what came back is not a `TService`.
template <class TService>
std::shared_ptr<TService> FetchService(const String& providerName, Tul::ITulServiceProxyFactory& proxyFactory)
{
    std::unique_ptr<Tul::ITulService> service(
        Tul::ServiceManager::GetService(providerName.c_str(), proxyFactory));
    if (!service)
    {
        throw InvalidOperationException("Could not retrieve service '{0}' from service provider '{1}'.",
                                        TypeName<TService>(), providerName);
    }
    auto* typed = dynamic_cast<TService*>(service.get());
    if (typed == nullptr)
    {
        throw InvalidCastException("The service does not implement service interface '{0}'.",
                                   proxyFactory.GetServiceName());
    }
    service.release();
    return std::shared_ptr<TService>(typed);
}

/// As above, under the provider name that the proxy factory `TProxyFactory` holds.
template <class TService, class TProxyFactory>
std::shared_ptr<TService> FetchService()
{
    auto& proxyFactory = TProxyFactory::GetInstance();
    const String providerName(proxyFactory.GetServiceProviderName());
    if (providerName.empty())
    {
        throw ArgumentException::Create("TService", String(proxyFactory.GetServiceName()),
                                        "Service does not specify a service provider");
    }
    return FetchService<TService>(providerName, proxyFactory);
}
}  // namespace Kiv::System::Nm::Services
