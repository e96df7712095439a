#pragma once

// Tells the service manager (systemd, for a unit of Type=notify) how the host is doing: ready once set up,
// a status line, stopping when it goes. Outside such a unit, without NOTIFY_SOCKET, every call does nothing.

#include <string>

namespace KivTools
{
void NotifyReady(const std::string& status);
void NotifyStatus(const std::string& status);
void NotifyStopping();
}  // namespace KivTools
