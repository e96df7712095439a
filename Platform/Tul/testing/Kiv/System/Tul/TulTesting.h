#pragma once

// What the tests of this build ask of the remote-service layer beyond its public face; not installed.

#include <Kiv/Export.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulClient.h>
#include <Kiv/System/Tul/TulSettings.h>

#include <cstddef>

namespace Kiv::System::Tul::Testing
{
/// Stops the process's transport as Shutdown does and puts a new one with `settings` in its place, with
/// nothing published, no connection and neither authorizator installed, so that a test starts from
/// nothing. Raises as ServiceManager::Configure does for settings that are no settings.
KIV_API void UseNewTransport(const TulSettings& settings = ServiceManager::GetSettings());

/// The connection objects alive in this process: those of the transport and those that proxies hold.
KIV_API std::size_t CountClients() noexcept;

/// The connection of `client`, taken as a call takes it.
KIV_API TulClient::Transaction TakeTransaction(TulClient& client);
}  // namespace Kiv::System::Tul::Testing
