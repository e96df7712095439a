#pragma once

#include <Nm/SpecializedPayloadHelper.h>
#include <Nm/TypeName.h>

namespace Kiv::System::Nm
{
template <class T>
PayloadTypeId SpecializedPayload<T>::GetPayloadTypeId()
{
    if (cachedPayloadTypeId == PayloadTypeId(0))
    {
        cachedPayloadTypeId =
            SpecializedPayloadHelper::GetINotificationManagerInfo().GetPayloadTypeId(GetPayloadTypeName());
    }
    return cachedPayloadTypeId;
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
