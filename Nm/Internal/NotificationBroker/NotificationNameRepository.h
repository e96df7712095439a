#pragma once

#include <Nm/IdType.h>
#include <Nm/Internal/NotificationBroker/NotificationName.h>
#include <Nm/Internal/Repository.h>

#include <Kiv/Threading/Mutex.h>

#include <map>
#include <memory>
#include <vector>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// The tree of dotted notification names. Adding a name makes its missing ancestors first, so a parent's
/// id is below its children's. Every public operation holds the repository's mutex throughout.
class KIV_API NotificationNameRepository
    : public Repository<NotificationNameId, std::unique_ptr<NotificationName>, NotificationNameRepository>
{
public:
    NotificationNameRepository();

    NotificationNameId Add(const String& name);
    NotificationNameId AddOrGetId(const String& name);
    NotificationNameId GetId(const String& name) const;
    bool Contains(NotificationNameId id) const;
    bool Contains(const String& name) const;
    String GetFullName(NotificationNameId id) const;
    bool HasChildren(NotificationNameId id) const;
    bool HasParent(NotificationNameId id) const;
    /// The ids of the name's ancestors from the top down, the name itself last: everything a
    /// notification on this name is delivered to.
    /// Into `ids`, which is cleared first and keeps its capacity.
    void GetMatchingIds(NotificationNameId id, std::vector<NotificationNameId>& ids) const;
    /// Takes out a leaf. Leaves the by-name row behind, so nothing may call it while names are looked up
    /// by text; names live as long as the broker.
    void Remove(NotificationNameId id);

    [[noreturn]] static void OnAddDuplicate(const String& name);
    [[noreturn]] static void OnRemoveUnknown(NotificationNameId id);
    [[noreturn]] static void OnQueryUnknown(NotificationNameId id);
    [[noreturn]] static void OnRemoveWithChildren(NotificationNameId id);
    [[noreturn]] static void OnQueryUnknown(const String& name);

private:
    NotificationNameId AddImpl(const String& name);
    bool ContainsImpl(const String& name) const;
    bool HasChildrenImpl(NotificationNameId id) const;
    NotificationName* GetName(const String& name) const;
    NotificationName* GetParent(const String& parentName);
    const NotificationName& GetNode(NotificationNameId id) const;
    static String GetParentName(const std::vector<String>& tokens);
    static String GetLeafName(const std::vector<String>& tokens);

    std::map<String, NotificationName*> byName;
    mutable Commons::Threading::Mutex mutex;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
