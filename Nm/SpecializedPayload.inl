#pragma once

#include <Nm/SpecializedPayloadHelper.h>
#include <Nm/TypeName.h>

namespace Kiv::System::Nm
{
template <class T>
PayloadTypeId SpecializedPayload<T>::GetPayloadTypeId()
{
    const std::uint16_t cached = cachedPayloadTypeId.load(std::memory_order_relaxed);
    if (cached != 0)
    {
        return PayloadTypeId(cached);
    }
    const PayloadTypeId id =
        SpecializedPayloadHelper::GetINotificationManagerInfo().GetPayloadTypeId(GetPayloadTypeName());
    cachedPayloadTypeId.store(id.GetValue(), std::memory_order_relaxed);
    return id;
}

template <class T>
const std::shared_ptr<const String>& SpecializedPayload<T>::GetSharedPayloadTypeName()
{
    // Demangled once per process: every payload built on a send asks for it.
    static const std::shared_ptr<const String> name = std::make_shared<const String>(TypeName<T>().GetName());
    return name;
}

template <class T>
String SpecializedPayload<T>::GetPayloadTypeName()
{
    return *GetSharedPayloadTypeName();
}

template <class T>
SpecializedPayload<T>::SpecializedPayload(const String& formatString)
    : SpecializedPayload(GetPayloadTypeId(), formatString)
{
}

template <class T>
SpecializedPayload<T>::SpecializedPayload(PayloadTypeId payloadTypeId, const String& formatString)
    : payload(payloadTypeId, GetSharedPayloadTypeName())
{
    SetFormatString(formatString);
}

template <class T>
SpecializedPayload<T>::SpecializedPayload(const Notification& notification)
    : payload(GetPayloadTypeId(), GetSharedPayloadTypeName(), notification)
{
}

template <class T>
void SpecializedPayload<T>::SetFormatString(const String& formatString)
{
    payload.SetFieldValue(payload.GetFieldIndexFormatString(), TulVariant<512>(formatString));
}
}  // namespace Kiv::System::Nm
