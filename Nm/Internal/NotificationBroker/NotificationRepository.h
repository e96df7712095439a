#pragma once

#include <Nm/IdType.h>
#include <Nm/Internal/Repository.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Severity.h>

#include <Kiv/Export.h>
#include <Kiv/Threading/Mutex.h>

#include <cstddef>
#include <vector>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// What a send takes from a registration.
struct SendInfo
{
    Severity severity;
    PayloadTypeId payloadTypeId;
};

/// The registration state of each known name: Subscribed (wanted, nobody registered it), Registered, or
/// Unregistered (given up; the same sender may come back with the same parameters). Every misuse is a
/// programming error and raises InvalidOperationException; the registration manager validates first.
class KIV_API NotificationRepository
    : public Repository<NotificationNameId, NotificationRegistrationInfo, NotificationRepository>
{
public:
    NotificationRepository();

    bool Contains(NotificationNameId id) const;
    std::size_t Count() const;
    void SubscribeNotification(NotificationNameId id, const String& notificationName);
    void RegisterNotification(NotificationNameId id, const String& notificationName, const String& senderName,
                              Severity severity, PayloadTypeId payloadTypeId);
    void UnregisterNotification(NotificationNameId id);
    void RemoveNotification(NotificationNameId id);
    /// The row itself. Valid while the row exists; callers copy what they keep.
    const NotificationRegistrationInfo& GetNotificationRegistrationInfo(NotificationNameId id) const;
    /// Under one lock: whether the row exists and is Registered, and then what a send needs of it.
    bool TryGetSendInfo(NotificationNameId id, SendInfo& info) const;
    String GetSenderName(NotificationNameId id) const;
    Severity GetSeverity(NotificationNameId id) const;
    PayloadTypeId GetPayloadTypeId(NotificationNameId id) const;
    NotificationRegistrationStatus GetStatus(NotificationNameId id) const;
    std::vector<NotificationNameId> GetNotificationNameIdsByStatus(
        const NotificationRegistrationStatus& status) const;
    std::vector<NotificationNameId> GetAllKnownNotificationNameIds() const;

    [[noreturn]] static void OnQueryUnknown(NotificationNameId id);
    [[noreturn]] static void OnLoadingKnownNotification(NotificationNameId id);
    [[noreturn]] static void OnRegisterAlreadyRegisteredNotification(NotificationNameId id);
    [[noreturn]] static void OnRegisterWithChangedParameters(NotificationNameId id);
    [[noreturn]] static void OnUnregisterNotRegisteredNotification(NotificationNameId id);
    [[noreturn]] static void OnRemoveUnknown(NotificationNameId id);
    [[noreturn]] static void OnRemoveNotUnregisteredNotification(NotificationNameId id);

private:
    bool IsEqual(const NotificationRegistrationInfo& info, const String& notificationName,
                 const String& senderName, Severity severity, PayloadTypeId payloadTypeId) const;
    NotificationRegistrationInfo& GetRow(NotificationNameId id);
    const NotificationRegistrationInfo& GetRow(NotificationNameId id) const;

    mutable Commons::Threading::Mutex mutex;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
