#pragma once

#include <Nm/SpecializedPayload.h>

#include <cstdint>

namespace Kiv::System::Nm
{
/// The payload of the broker's reports about subscriptions to names without a sender: the format string
/// and the name that was asked for.
template <class T>
class NmSubscribeFailedPayload : public SpecializedPayload<NmSubscribeFailedPayload<T>>
{
public:
    /// A name of 512 characters or more is refused.
    NmSubscribeFailedPayload(const String& formatString, const String& notificationName)
        : SpecializedPayload<NmSubscribeFailedPayload<T>>(formatString),
          notificationNameField(this->payload.AddField(Tul::TulType::String))
    {
        this->payload.SetFieldValue(notificationNameField, TulVariant<512>(notificationName));
    }

private:
    std::uint32_t notificationNameField;
};

class NmSubscribeToNotRegisteredPayload : public NmSubscribeFailedPayload<NmSubscribeToNotRegisteredPayload>
{
public:
    explicit NmSubscribeToNotRegisteredPayload(const String& notificationName)
        : NmSubscribeFailedPayload("A subscriber subscribed to not registered notification name: {}",
                                   notificationName)
    {
    }
};

class NmSubscribeToUnregisteredPayload : public NmSubscribeFailedPayload<NmSubscribeToUnregisteredPayload>
{
public:
    explicit NmSubscribeToUnregisteredPayload(const String& notificationName)
        : NmSubscribeFailedPayload("A subscriber subscribed to unregistered notification name: {}",
                                   notificationName)
    {
    }
};
}  // namespace Kiv::System::Nm
