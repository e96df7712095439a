#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
/// The base of every service interface. A caller gets one from ServiceManager::GetService, owns it, and
/// casts it to the interface it asked for.
class KIV_API ITulService
{
public:
    virtual ~ITulService();

protected:
    ITulService() = default;
    ITulService(const ITulService&) = default;
    ITulService& operator=(const ITulService&) = default;
};
}  // namespace Kiv::System::Tul
