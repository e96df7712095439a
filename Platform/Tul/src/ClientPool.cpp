#include "ClientPool.h"

#include "TulClientImpl.h"
#include "TulSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kiv::System::Tul::Internal
{
namespace
{
/// Whether this process serves the other end of `fd`: a provider that it is publishing just now.
bool IsServedHere(int fd)
{
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && peer.pid == getpid();
}

bool HasHungUp(int watchFd)
{
    pollfd peer{watchFd, POLLRDHUP, 0};
    return watchFd >= 0 && poll(&peer, 1, 0) > 0 && peer.revents != 0;
}
}  // namespace

ClientPool::~ClientPool()
{
    Close("the service manager was shut down");
}

std::shared_ptr<TulClient> ClientPool::Find(const String& providerName)
{
    std::lock_guard<std::mutex> lock(mutex);
    DropDead();
    const auto found = entries.find(providerName);
    return found != entries.end() ? found->second.client : nullptr;
}

std::shared_ptr<TulClient> ClientPool::Connect(const String& providerName)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (closed)
        {
            return nullptr;
        }
    }
    // Connected unlocked, since the wait may be long; a client made meanwhile by another thread wins.
    const int fd = Internal::Connect(settings, providerName);
    if (fd < 0 || (!settings.marshalLocalCalls && IsServedHere(fd)))
    {
        if (fd >= 0)
        {
            close(fd);
        }
        return nullptr;
    }
    Entry made{TulClientAccess::Make(std::make_unique<TulClient::Impl>(providerName, fd, settings)),
               fcntl(fd, F_DUPFD_CLOEXEC, 0)};
    std::lock_guard<std::mutex> lock(mutex);
    auto slot = entries.find(providerName);
    if (closed || (slot != entries.end() && !slot->second.client->IsBroken()))
    {
        if (made.watchFd >= 0)
        {
            close(made.watchFd);
        }
        return closed ? nullptr : slot->second.client;
    }
    if (slot == entries.end())
    {
        return entries.emplace(providerName, std::move(made)).first->second.client;
    }
    Release(slot->second, "the provider has gone");
    slot->second = std::move(made);
    return slot->second.client;
}

bool ClientPool::IsEmpty() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return entries.empty();
}

void ClientPool::Close(const String& reason) noexcept
{
    Entries open;
    {
        std::lock_guard<std::mutex> lock(mutex);
        closed = true;
        open.swap(entries);
    }
    for (auto& [provider, entry] : open)
    {
        Release(entry, reason);
    }
}

void ClientPool::DropDead()
{
    for (auto entry = entries.begin(); entry != entries.end();)
    {
        const bool dead = entry->second.client->IsBroken() || HasHungUp(entry->second.watchFd);
        if (!dead)
        {
            ++entry;
            continue;
        }
        Release(entry->second, "the provider has gone");
        entry = entries.erase(entry);
    }
}

void ClientPool::Release(Entry& entry, const String& reason) noexcept
{
    TulClientAccess::Get(*entry.client).Close(reason);
    if (entry.watchFd >= 0)
    {
        close(entry.watchFd);
        entry.watchFd = -1;
    }
}
}  // namespace Kiv::System::Tul::Internal
