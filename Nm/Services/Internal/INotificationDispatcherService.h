#pragma once

#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulService.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm
{
class Notification;
}

namespace Kiv::System::Nm::Services::Internal
{
/// The way from the broker to the dispatcher of one process.
class KIV_API INotificationDispatcherService : public Tul::ITulService
{
public:
    ~INotificationDispatcherService() override;

    /// Delivers `notification` to the subscribers of the process under `nameIds`, the ids of the
    /// notification's name and its ancestors that this dispatcher wants, top-most first.
    virtual void Dispatch(const Notification& notification, const std::vector<std::uint32_t>& nameIds) = 0;
};
}  // namespace Kiv::System::Nm::Services::Internal
