#pragma once

#include <Kiv/BasicString.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <shared_mutex>
#include <vector>

namespace Kiv::System::Tul
{
class ITulAuthorizator;
class ITulServiceFactory;
}  // namespace Kiv::System::Tul

namespace Kiv::System::Tul::Internal
{
/// The publications of this process. A publication keeps its handles while the process serves: a
/// provider handle per provider name, a service handle per (provider, service) pair, both from 1 in
/// the order of first publication; a remote caller names a service by them.
class ServiceRegistry
{
public:
    struct Handles
    {
        std::uint16_t provider = 0;
        std::uint16_t service = 0;
    };

    struct Publication
    {
        String providerName;
        String serviceName;
        ITulServiceFactory* factory = nullptr;
        ITulAuthorizator* authorizator = nullptr;
    };

    /// Raises InvalidOperationException when the handles are used up.
    void Publish(const String& providerName, const String& serviceName, ITulServiceFactory& factory);
    bool HasProvider(const String& providerName) const;
    std::optional<Publication> Find(const String& providerName, const String& serviceName) const;
    std::optional<Handles> GetHandles(const String& providerName, const String& serviceName) const;
    std::optional<Publication> FindByHandles(Handles handles) const;

    ITulAuthorizator* SetAuthorizator(ITulAuthorizator* authorizator) noexcept;
    ITulAuthorizator* SetInternalAuthorizator(ITulAuthorizator* authorizator) noexcept;
    /// The policy of services without a security stub; null for the default.
    ITulAuthorizator* GetInternalAuthorizator() const noexcept;
    void Clear(bool withAuthorizator) noexcept;

private:
    struct Entry
    {
        std::uint16_t providerHandle;
        String serviceName;
        ITulServiceFactory* factory;
    };

    /// Index of the entry or provider, or -1.
    long FindEntry(const String& providerName, const String& serviceName) const;
    long FindProvider(const String& providerName) const;

    mutable std::shared_mutex mutex;
    /// Provider handle - 1 is the index.
    std::vector<String> providers;
    /// Service handle - 1 is the index.
    std::vector<Entry> entries;
    ITulAuthorizator* authorizator = nullptr;
    std::atomic<ITulAuthorizator*> internalAuthorizator{nullptr};
};

/// The registry of the process, never destroyed, so that publications made or asked for during static
/// initialisation or destruction of another library find it.
ServiceRegistry& GetServiceRegistry();
}  // namespace Kiv::System::Tul::Internal
