#include <Nm/Internal/NotificationBroker/NotificationRepository.h>

#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Commons::Threading::Mutex;

NotificationRepository::NotificationRepository() : mutex(true) {}

bool NotificationRepository::Contains(NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return container.find(id) != container.end();
}

std::size_t NotificationRepository::Count() const
{
    Mutex::ScopedLock lock(mutex);
    return container.size();
}

void NotificationRepository::SubscribeNotification(NotificationNameId id, const String& notificationName)
{
    Mutex::ScopedLock lock(mutex);
    if (container.find(id) != container.end())
    {
        OnLoadingKnownNotification(id);
    }
    container.emplace(id, NotificationRegistrationInfo(id, notificationName));
}

void NotificationRepository::RegisterNotification(NotificationNameId id, const String& notificationName,
                                                  const String& senderName, Severity severity,
                                                  PayloadTypeId payloadTypeId)
{
    Mutex::ScopedLock lock(mutex);
    auto row = container.find(id);
    if (row == container.end())
    {
        container.emplace(
            id, NotificationRegistrationInfo(id, notificationName, senderName, severity, payloadTypeId,
                                             NotificationRegistrationStatus::Registered));
        return;
    }
    NotificationRegistrationInfo& info = row->second;
    if (info.IsRegistered())
    {
        OnRegisterAlreadyRegisteredNotification(id);
    }
    if (info.IsSubscribed() && info.GetNotificationName() == notificationName)
    {
        info = NotificationRegistrationInfo(id, notificationName, senderName, severity, payloadTypeId,
                                            NotificationRegistrationStatus::Registered);
        return;
    }
    if (info.IsUnRegistered() && IsEqual(info, notificationName, senderName, severity, payloadTypeId))
    {
        info.SetStatusRegistered();
        return;
    }
    OnRegisterWithChangedParameters(id);
}

void NotificationRepository::UnregisterNotification(NotificationNameId id)
{
    Mutex::ScopedLock lock(mutex);
    NotificationRegistrationInfo& info = GetRow(id);
    if (!info.IsRegistered())
    {
        OnUnregisterNotRegisteredNotification(id);
    }
    info.SetStatusUnregistered();
}

void NotificationRepository::RemoveNotification(NotificationNameId id)
{
    Mutex::ScopedLock lock(mutex);
    auto row = container.find(id);
    if (row == container.end())
    {
        OnRemoveUnknown(id);
    }
    if (!row->second.IsSubscribed() && !row->second.IsUnRegistered())
    {
        OnRemoveNotUnregisteredNotification(id);
    }
    container.erase(row);
}

const NotificationRegistrationInfo& NotificationRepository::GetNotificationRegistrationInfo(
    NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return GetRow(id);
}

bool NotificationRepository::TryGetSendInfo(NotificationNameId id, SendInfo& info) const
{
    Mutex::ScopedLock lock(mutex);
    const auto row = container.find(id);
    if (row == container.end() || row->second.GetStatus() != NotificationRegistrationStatus::Registered)
    {
        return false;
    }
    info = {row->second.GetSeverity(), row->second.GetPayloadTypeId()};
    return true;
}

String NotificationRepository::GetSenderName(NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return GetRow(id).GetSenderName();
}

Severity NotificationRepository::GetSeverity(NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return GetRow(id).GetSeverity();
}

PayloadTypeId NotificationRepository::GetPayloadTypeId(NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return GetRow(id).GetPayloadTypeId();
}

NotificationRegistrationStatus NotificationRepository::GetStatus(NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return GetRow(id).GetStatus();
}

std::vector<NotificationNameId> NotificationRepository::GetNotificationNameIdsByStatus(
    const NotificationRegistrationStatus& status) const
{
    Mutex::ScopedLock lock(mutex);
    std::vector<NotificationNameId> ids;
    for (const auto& row : container)
    {
        if (row.second.GetStatus() == status)
        {
            ids.push_back(row.first);
        }
    }
    return ids;
}

std::vector<NotificationNameId> NotificationRepository::GetAllKnownNotificationNameIds() const
{
    Mutex::ScopedLock lock(mutex);
    std::vector<NotificationNameId> ids;
    ids.reserve(container.size());
    for (const auto& row : container)
    {
        ids.push_back(row.first);
    }
    return ids;
}

bool NotificationRepository::IsEqual(const NotificationRegistrationInfo& info, const String& notificationName,
                                     const String& senderName, Severity severity,
                                     PayloadTypeId payloadTypeId) const
{
    return info.GetNotificationName() == notificationName && info.GetSenderName() == senderName &&
           info.GetSeverity() == severity && info.GetPayloadTypeId() == payloadTypeId;
}

NotificationRegistrationInfo& NotificationRepository::GetRow(NotificationNameId id)
{
    auto row = container.find(id);
    if (row == container.end())
    {
        OnQueryUnknown(id);
    }
    return row->second;
}

const NotificationRegistrationInfo& NotificationRepository::GetRow(NotificationNameId id) const
{
    auto row = container.find(id);
    if (row == container.end())
    {
        OnQueryUnknown(id);
    }
    return row->second;
}

void NotificationRepository::OnQueryUnknown(NotificationNameId id)
{
    throw InvalidOperationException("NotificationRepository: Tried to query unknown NotificationNameId={0}.",
                                    id);
}

void NotificationRepository::OnLoadingKnownNotification(NotificationNameId id)
{
    throw InvalidOperationException(
        "NotificationRepository: Tried to load already known NotificationNameId={0}.", id);
}

void NotificationRepository::OnRegisterAlreadyRegisteredNotification(NotificationNameId id)
{
    throw InvalidOperationException(
        "NotificationRepository: Tried to register already registered NotificationNameId={0}.", id);
}

void NotificationRepository::OnRegisterWithChangedParameters(NotificationNameId id)
{
    throw InvalidOperationException(
        "NotificationRepository: Tried to register a loaded or unregistered notification with changed "
        "parameters. "
        "NotificationNameId={0}",
        id);
}

void NotificationRepository::OnUnregisterNotRegisteredNotification(NotificationNameId id)
{
    throw InvalidOperationException(
        "NotificationRepository: Tried to unregister NotificationNameId={0} that has not been registered.",
        id);
}

void NotificationRepository::OnRemoveUnknown(NotificationNameId id)
{
    throw InvalidOperationException(
        "NotificationRepository: Tried to remove an unknown NotificationNameId={0}.", id);
}

void NotificationRepository::OnRemoveNotUnregisteredNotification(NotificationNameId id)
{
    throw InvalidOperationException(
        "NotificationRepository: Tried to remove an NotificationNameId={0} that had not been unregistered.",
        id);
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
