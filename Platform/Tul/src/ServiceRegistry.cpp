#include "ServiceRegistry.h"

#include <Kiv/Exceptions.h>

#include <limits>
#include <mutex>

namespace Kiv::System::Tul::Internal
{
long ServiceRegistry::FindProvider(const String& providerName) const
{
    for (std::size_t i = 0; i < providers.size(); ++i)
    {
        if (*providers[i] == providerName)
        {
            return static_cast<long>(i);
        }
    }
    return -1;
}

long ServiceRegistry::FindEntry(const String& providerName, const String& serviceName) const
{
    const long provider = FindProvider(providerName);
    for (std::size_t i = 0; provider >= 0 && i < entries.size(); ++i)
    {
        if (entries[i].providerHandle == provider + 1 && *entries[i].serviceName == serviceName)
        {
            return static_cast<long>(i);
        }
    }
    return -1;
}

void ServiceRegistry::Publish(const String& providerName, const String& serviceName,
                              ITulServiceFactory& factory)
{
    constexpr std::size_t maxHandle = std::numeric_limits<std::uint16_t>::max();
    std::unique_lock<std::shared_mutex> lock(mutex);
    const long existing = FindEntry(providerName, serviceName);
    if (existing >= 0)
    {
        entries[static_cast<std::size_t>(existing)].factory = &factory;
        return;
    }
    long provider = FindProvider(providerName);
    if (entries.size() == maxHandle || (provider < 0 && providers.size() == maxHandle))
    {
        throw InvalidOperationException("No handle left to publish service '{0}' of provider '{1}'",
                                        serviceName, providerName);
    }
    if (provider < 0)
    {
        providers.push_back(std::make_shared<const String>(providerName));
        provider = static_cast<long>(providers.size()) - 1;
    }
    entries.push_back(
        {static_cast<std::uint16_t>(provider + 1), std::make_shared<const String>(serviceName), &factory});
}

bool ServiceRegistry::HasProvider(const String& providerName) const
{
    std::shared_lock<std::shared_mutex> lock(mutex);
    return FindProvider(providerName) >= 0;
}

std::optional<ServiceRegistry::Publication> ServiceRegistry::Find(const String& providerName,
                                                                  const String& serviceName) const
{
    std::shared_lock<std::shared_mutex> lock(mutex);
    const long index = FindEntry(providerName, serviceName);
    if (index < 0)
    {
        return std::nullopt;
    }
    const Entry& entry = entries[static_cast<std::size_t>(index)];
    return Publication{providers[entry.providerHandle - 1U], entry.serviceName, entry.factory,
                       policies.authorizator.load()};
}

std::optional<ServiceRegistry::Handles> ServiceRegistry::GetHandles(const String& providerName,
                                                                    const String& serviceName) const
{
    std::shared_lock<std::shared_mutex> lock(mutex);
    const long index = FindEntry(providerName, serviceName);
    if (index < 0)
    {
        return std::nullopt;
    }
    return Handles{entries[static_cast<std::size_t>(index)].providerHandle,
                   static_cast<std::uint16_t>(index + 1)};
}

std::optional<ServiceRegistry::Publication> ServiceRegistry::FindByHandles(Handles handles) const
{
    std::shared_lock<std::shared_mutex> lock(mutex);
    if (handles.service == 0 || handles.service > entries.size())
    {
        return std::nullopt;
    }
    const Entry& entry = entries[handles.service - 1U];
    if (entry.providerHandle != handles.provider)
    {
        return std::nullopt;
    }
    return Publication{providers[entry.providerHandle - 1U], entry.serviceName, entry.factory,
                       policies.authorizator.load()};
}

ITulAuthorizator* ServiceRegistry::GetInternalAuthorizator() const noexcept
{
    return policies.internalAuthorizator.load();
}

void ServiceRegistry::Clear() noexcept
{
    std::unique_lock<std::shared_mutex> lock(mutex);
    providers.clear();
    entries.clear();
}
}  // namespace Kiv::System::Tul::Internal
