#include "Host/ServiceReadiness.h"

#include <cstring>
#include <iostream>

// systemd's own implementation of its notification protocol: it knows the socket forms (abstract names,
// paths) and the credentials the service manager checks, which a hand-written datagram would have to
// follow release by release.
#include <systemd/sd-daemon.h>

namespace KivTools
{
namespace
{
void Notify(const std::string& state)
{
    // Negative: the socket was named but could not be reached. The host runs on; the service manager
    // will tell of a unit that never got ready.
    const int result = sd_notify(0, state.c_str());
    if (result < 0)
    {
        std::cerr << "kivnm-host: could not notify the service manager: " << std::strerror(-result) << "\n";
    }
}
}  // namespace

void NotifyReady(const std::string& status)
{
    Notify("READY=1\nSTATUS=" + status);
}

void NotifyStatus(const std::string& status)
{
    Notify("STATUS=" + status);
}

void NotifyStopping()
{
    Notify("STOPPING=1\nSTATUS=stopping");
}
}  // namespace KivTools
