#include <Nm/AppDomainSingleton.h>
#include <Nm/GenericPayload.h>
#include <Nm/Internal/PayloadFormatter.h>
#include <Nm/Notification.h>
#include <Nm/NotificationManager.h>

#include <Kiv/Exceptions.h>

#include <stdexcept>

namespace Kiv::System::Nm
{
using Tul::TulType;

namespace
{
template <class TFunction>
decltype(auto) CheckedField(std::uint32_t fieldIndex, TFunction&& access)
{
    // The vector's checked access decides; its failure becomes ours.
    try
    {
        return access();
    }
    catch (const std::out_of_range&)
    {
        throw ArgumentOutOfRangeException::Create("fieldIndex", fieldIndex);
    }
}
}  // namespace

IPayload::~IPayload() = default;

GenericPayload::GenericPayload(const Notification& notification)
    : payloadTypeId(notification.GetPayloadTypeId()), notification(&notification)
{
    InitializeFields();
}

GenericPayload::GenericPayload(PayloadTypeId payloadTypeId, const String& payloadTypeName)
    : payloadTypeId(payloadTypeId), payloadTypeName(payloadTypeName)
{
    rawPayload.reserve(InitialFieldCapacity);
    InitializeFields();
}

GenericPayload::GenericPayload(PayloadTypeId payloadTypeId, std::shared_ptr<const String> payloadTypeName)
    : payloadTypeId(payloadTypeId), sharedPayloadTypeName(std::move(payloadTypeName))
{
    rawPayload.reserve(InitialFieldCapacity);
    InitializeFields();
}

GenericPayload::GenericPayload(PayloadTypeId payloadTypeId, const String& payloadTypeName,
                               const std::vector<TulVariant<512>>& rawPayload)
    : payloadTypeId(payloadTypeId), payloadTypeName(payloadTypeName), rawPayload(rawPayload)
{
    InitializeFields();
}

GenericPayload::GenericPayload(PayloadTypeId payloadTypeId, const String& payloadTypeName,
                               const Notification& notification)
    : payloadTypeId(payloadTypeId), payloadTypeName(payloadTypeName), notification(&notification)
{
    if (notification.GetPayloadTypeId() != payloadTypeId)
    {
        ThrowBecauseOfWrongType(payloadTypeName);
    }
    InitializeFields();
}

GenericPayload::GenericPayload(PayloadTypeId payloadTypeId, std::shared_ptr<const String> payloadTypeName,
                               const Notification& notification)
    : payloadTypeId(payloadTypeId),
      sharedPayloadTypeName(std::move(payloadTypeName)),
      notification(&notification)
{
    if (notification.GetPayloadTypeId() != payloadTypeId)
    {
        ThrowBecauseOfWrongType(GetNameReference());
    }
    InitializeFields();
}

const String& GenericPayload::GetNameReference() const
{
    return sharedPayloadTypeName != nullptr ? *sharedPayloadTypeName : payloadTypeName;
}

void GenericPayload::ThrowBecauseOfWrongType(const String& expectedName) const
{
    String notificationName = String::Format("{}", notification->GetNotificationNameId());
    String actualTypeName = String::Format("{}", notification->GetPayloadTypeId());
    // Wrapping happens in a subscriber's process, which has a manager; without one this raises.
    NotificationManager& manager = NotificationManager::GetInstance();
    // The names are only for the message: what can't be found stays a number.
    try
    {
        notificationName = manager.GetNotificationName(notification->GetNotificationNameId());
        actualTypeName = manager.GetPayloadTypeName(notification->GetPayloadTypeId());
    }
    catch (const Exception&)
    {
    }
    throw ArgumentException(
        "Creating payload object with invalid type parameter '{}': The notification '{}' uses PayloadType "
        "'{}'",
        expectedName, notificationName, actualTypeName);
}

void GenericPayload::InitializeFields()
{
    fieldIndexFormatString = AddField(TulType::String);
}

PayloadTypeId GenericPayload::GetId() const
{
    return payloadTypeId;
}

String GenericPayload::GetName() const
{
    return GetNameReference();
}

const std::vector<TulVariant<512>>& GenericPayload::GetAsRawPayloadType() const
{
    return notification != nullptr ? notification->GetPayload() : rawPayload;
}

std::vector<TulVariant<512>>& GenericPayload::MoveOutRawPayload()
{
    return rawPayload;
}

String GenericPayload::ToString() const
{
    return Internal::PayloadFormatter(GetAsRawPayloadType()).ToString();
}

std::uint32_t GenericPayload::GetFieldCount() const
{
    return static_cast<std::uint32_t>(fieldTypes.size());
}

std::uint32_t GenericPayload::GetFieldIndexFormatString() const
{
    return fieldIndexFormatString;
}

bool GenericPayload::HasAssociatedNotification() const
{
    return notification != nullptr;
}

bool GenericPayload::IsReadOnly() const
{
    return notification != nullptr;
}

bool GenericPayload::CanFieldBeAdded() const
{
    return notification == nullptr || fieldTypes.size() < notification->GetPayload().size();
}

std::uint32_t GenericPayload::AddField(TulType type)
{
    if (!CanFieldBeAdded())
    {
        throw InvalidOperationException(
            "Payload: Cannot add field because the associated notification does not contain enough fields.");
    }
    fieldTypes.push_back(type);
    if (notification == nullptr && rawPayload.size() < fieldTypes.size())
    {
        rawPayload.emplace_back();
    }
    return static_cast<std::uint32_t>(fieldTypes.size() - 1);
}

const TulVariant<512>& GenericPayload::GetFieldValue(std::uint32_t fieldIndex) const
{
    return CheckedField(fieldIndex,
                        [&]() -> const TulVariant<512>& { return GetAsRawPayloadType().at(fieldIndex); });
}

TulType GenericPayload::GetFieldType(std::uint32_t fieldIndex) const
{
    return CheckedField(fieldIndex, [&] { return fieldTypes.at(fieldIndex); });
}

void GenericPayload::SetFieldValue(std::uint32_t fieldIndex, const TulVariant<512>& value)
{
    if (IsReadOnly())
    {
        throw InvalidOperationException("Cannot change a payload object referencing to an notification.");
    }
    CheckedField(fieldIndex, [&] { rawPayload.at(fieldIndex) = value; });
}
}  // namespace Kiv::System::Nm
