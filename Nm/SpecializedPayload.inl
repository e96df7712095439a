#pragma once

#include <Nm/SpecializedPayloadHelper.h>
#include <Nm/TypeName.h>

namespace Kiv::System::Nm
{
template <class T>
PayloadTypeId SpecializedPayload<T>::GetPayloadTypeId()
{
    const std::uint64_t generation = SpecializedPayloadHelper::GetSetupGeneration();
    const std::uint64_t cached = cachedPayloadTypeId.load(std::memory_order_relaxed);
    if ((cached >> 32) == generation && (cached & 0xFFFFu) != 0)
    {
        return PayloadTypeId(static_cast<std::uint16_t>(cached & 0xFFFFu));
    }
    const PayloadTypeId id =
        SpecializedPayloadHelper::GetINotificationManagerInfo().GetPayloadTypeId(GetPayloadTypeName());
    cachedPayloadTypeId.store((generation << 32) | id.GetValue(), std::memory_order_relaxed);
    return id;
}

template <class T>
String SpecializedPayload<T>::GetPayloadTypeName()
{
    return TypeName<T>().GetName();
}

template <class T>
SpecializedPayload<T>::SpecializedPayload(const String& formatString)
    : payload(GetPayloadTypeId(), GetPayloadTypeName())
{
    SetFormatString(formatString);
}

template <class T>
SpecializedPayload<T>::SpecializedPayload(const Notification& notification)
    : payload(GetPayloadTypeId(), GetPayloadTypeName(), notification)
{
}

template <class T>
void SpecializedPayload<T>::SetFormatString(const String& formatString)
{
    payload.SetFieldValue(payload.GetFieldIndexFormatString(), TulVariant<512>(formatString));
}
}  // namespace Kiv::System::Nm
