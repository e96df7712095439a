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
/// The strictness of subscriptions at the broker: relaxed while the system sets up, checked after. Ids travel
/// as plain integers and names as fixed strings.
class KIV_API ISubscriptionStateService : public Tul::ITulService
{
public:
    ~ISubscriptionStateService() override;

    virtual bool IsChecked() = 0;
    virtual void SetStateChecked() = 0;
    virtual void SetStateRelaxed() = 0;
};
}  // namespace Kiv::System::Nm::Services::Internal
