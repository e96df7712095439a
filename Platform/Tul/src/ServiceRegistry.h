#pragma once

#include <Kiv/BasicString.h>

#include <atomic>
#include <cstdint>
#include <memory>
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
/// The two policies that a process installs (ServiceManager::SetAuthorizator and
/// SetInternalAuthorizator); they outlast the transports that ask them. Null stands for the default.
struct Policies
{
    std::atomic<ITulAuthorizator*> authorizator{nullptr};
    std::atomic<ITulAuthorizator*> internalAuthorizator{nullptr};
};

/// The publications of a transport. A publication keeps its handles while the process serves: a
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

    /// The names are shared with the registry: finding a publication for each call copies no text.
    struct Publication
    {
        std::shared_ptr<const String> providerName;
        std::shared_ptr<const String> serviceName;
        ITulServiceFactory* factory = nullptr;
        ITulAuthorizator* authorizator = nullptr;
    };

    /// Publications carry the installed policy of `policies`.
    explicit ServiceRegistry(const Policies& policies) noexcept : policies(policies) {}

    /// Raises InvalidOperationException when the handles are used up.
    void Publish(const String& providerName, const String& serviceName, ITulServiceFactory& factory);
    bool HasProvider(const String& providerName) const;
    std::optional<Publication> Find(const String& providerName, const String& serviceName) const;
    std::optional<Handles> GetHandles(const String& providerName, const String& serviceName) const;
    std::optional<Publication> FindByHandles(Handles handles) const;

    /// The policy of services without a security stub; null for the default.
    ITulAuthorizator* GetInternalAuthorizator() const noexcept;
    /// Withdraws every publication.
    void Clear() noexcept;

private:
    struct Entry
    {
        std::uint16_t providerHandle;
        std::shared_ptr<const String> serviceName;
        ITulServiceFactory* factory;
    };

    /// Index of the entry or provider, or -1.
    long FindEntry(const String& providerName, const String& serviceName) const;
    long FindProvider(const String& providerName) const;

    const Policies& policies;
    mutable std::shared_mutex mutex;
    /// Provider handle - 1 is the index.
    std::vector<std::shared_ptr<const String>> providers;
    /// Service handle - 1 is the index.
    std::vector<Entry> entries;
};
}  // namespace Kiv::System::Tul::Internal
