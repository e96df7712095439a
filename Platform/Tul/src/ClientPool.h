#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/System/Tul/TulSettings.h>

#include <map>
#include <memory>
#include <mutex>

namespace Kiv::System::Tul
{
class TulClient;
}

namespace Kiv::System::Tul::Internal
{
/// The connections of a transport to the providers it calls, one to each, shared by the proxies made on
/// it. A connection that failed or whose provider has gone (the peer hung up) is let go at the next
/// look-up, so that a process that left costs no descriptor here and the next call to its provider
/// connects anew; the object goes with the last proxy that holds it.
class ClientPool
{
public:
    explicit ClientPool(const TulSettings& settings) : settings(settings) {}
    ClientPool(const ClientPool&) = delete;
    ClientPool& operator=(const ClientPool&) = delete;
    ~ClientPool();

    /// The working connection to `providerName`, or null.
    std::shared_ptr<TulClient> Find(const String& providerName);
    /// A new connection to `providerName` in place of a broken one, or a working one that another thread
    /// made meanwhile; null when the provider can't be reached within the connect wait, when this
    /// process serves it itself (unless local calls are marshalled), and once the pool is closed.
    /// Raises as Connect does for an endpoint of an untrusted user.
    std::shared_ptr<TulClient> Connect(const String& providerName);
    bool IsEmpty() const;

    /// Breaks every connection for `reason`, which wakes a call waiting on it, and makes none from now on.
    void Close(const String& reason) noexcept;

private:
    struct Entry
    {
        std::shared_ptr<TulClient> client;
        /// A duplicate of the connection's socket, to see that its provider has gone without touching the
        /// client's own descriptor, which the client may close at any time; -1 if none could be made.
        int watchFd = -1;
    };
    using Entries = std::map<String, Entry>;

    /// Under the mutex.
    void DropDead();
    /// Breaks the connection of `entry` for `reason` and closes its watch.
    static void Release(Entry& entry, const String& reason) noexcept;

    const TulSettings& settings;
    mutable std::mutex mutex;
    Entries entries;
    bool closed = false;
};
}  // namespace Kiv::System::Tul::Internal
