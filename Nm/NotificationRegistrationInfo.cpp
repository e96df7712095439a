#include <Nm/NotificationRegistrationInfo.h>

#include <Nm/Internal/TulVariantSerializer.h>

#include <Kiv/SecureString.h>
#include <Kiv/System/Tul/TulReader.h>
#include <Kiv/System/Tul/TulWriter.h>

namespace Kiv::System::Nm
{
using Serializer = Internal::TulVariantSerializer;
using Tul::TulReader;
using Tul::TulWriter;

namespace
{
String TextOf(const TulVariant<512>& value)
{
    const char* chars = value.GetChars();
    return String(chars, SecureStrnlen(chars, TulVariant<512>::MaxStringSize));
}
}  // namespace

NotificationRegistrationInfo::NotificationRegistrationInfo() : notificationName(""), senderName("") {}

NotificationRegistrationInfo::NotificationRegistrationInfo(NotificationNameId notificationNameId,
                                                           const String& notificationName)
    : notificationNameId(notificationNameId), notificationName(notificationName), senderName("")
{
}

NotificationRegistrationInfo::NotificationRegistrationInfo(NotificationNameId notificationNameId,
                                                           const String& notificationName,
                                                           const String& senderName, Severity severity,
                                                           PayloadTypeId payloadTypeId,
                                                           NotificationRegistrationStatus status)
    : notificationNameId(notificationNameId),
      notificationName(notificationName),
      senderName(senderName),
      severity(severity),
      payloadTypeId(payloadTypeId),
      status(status)
{
}

NotificationRegistrationInfo::~NotificationRegistrationInfo() = default;

String NotificationRegistrationInfo::GetNotificationName() const
{
    return TextOf(notificationName);
}

String NotificationRegistrationInfo::GetSenderName() const
{
    if (senderName.GetType() == TulType::Unset)
    {
        return String();
    }
    return TextOf(senderName);
}

void NotificationRegistrationInfo::Serialize(TulWriter& writer) const
{
    Serializer::WriteTaggedValue(writer, TulType::UInt32, notificationNameId.GetValue());
    Serializer::WriteElement(writer, notificationName);
    Serializer::WriteElement(writer, senderName);
    Serializer::WriteTaggedValue(writer, TulType::UInt8, static_cast<std::uint8_t>(severity));
    Serializer::WriteTaggedValue(writer, TulType::UInt16, payloadTypeId.GetValue());
    Serializer::WriteTaggedValue(writer, TulType::UInt8, static_cast<std::uint8_t>(status));
}

void NotificationRegistrationInfo::Deserialize(TulReader& reader)
{
    notificationNameId =
        NotificationNameId(Serializer::ReadTaggedValue<NotificationNameId::type>(reader, TulType::UInt32));
    notificationName = Serializer::ReadElement(reader);
    senderName = Serializer::ReadElement(reader);
    severity = static_cast<Severity>(Serializer::ReadTaggedValue<std::uint8_t>(reader, TulType::UInt8));
    payloadTypeId = PayloadTypeId(Serializer::ReadTaggedValue<PayloadTypeId::type>(reader, TulType::UInt16));
    status = static_cast<NotificationRegistrationStatus>(
        Serializer::ReadTaggedValue<std::uint8_t>(reader, TulType::UInt8));
}
}  // namespace Kiv::System::Nm
