#pragma once

#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Severity.h>
#include <Nm/TulString.h>
#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulService.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm::Services::Internal
{
/// The broker's bookkeeping of dispatchers and of the names each wants, for the dispatchers of all processes.
/// Ids travel as plain integers and names as fixed strings.
class KIV_API INotificationDispatcherManagerService : public Tul::ITulService
{
public:
    ~INotificationDispatcherManagerService() override;

    virtual std::uint16_t RegisterDispatcher(const TulString<512>& dispatcherName) = 0;
    virtual void UnregisterDispatcher(std::uint16_t dispatcherId) = 0;
    virtual void RegisterNotificationDispatch(std::uint32_t notificationNameId,
                                              std::uint16_t dispatcherId) = 0;
    virtual void UnregisterNotificationDispatch(std::uint32_t notificationNameId,
                                                std::uint16_t dispatcherId) = 0;
    virtual bool ContainsNotificationDispatch(std::uint32_t notificationNameId,
                                              std::uint16_t dispatcherId) = 0;
};
}  // namespace Kiv::System::Nm::Services::Internal
