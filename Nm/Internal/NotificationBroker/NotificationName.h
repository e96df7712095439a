#pragma once

#include <Nm/IdType.h>

#include <Kiv/Export.h>

#include <Kiv/BasicString.h>

#include <vector>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// One node of the name forest: the last component of a dotted name, linked to its parent and children.
/// Links are not owning; the repository owns the nodes.
class KIV_API NotificationName
{
public:
    NotificationName(NotificationNameId id, const String& name, NotificationName* parent);
    NotificationName(NotificationNameId id, const String& name, NotificationName& parent);
    NotificationName(const NotificationName&) = delete;
    NotificationName& operator=(const NotificationName&) = delete;
    /// Unlinks from parent and children, so that the table can be torn down in any order.
    ~NotificationName();

    NotificationNameId GetId() const noexcept { return id; }
    String GetName() const { return name; }
    String GetFullName() const;
    bool HasParent() const noexcept { return parent != nullptr; }
    bool HasChildren() const noexcept { return !children.empty(); }
    NotificationName& GetParent() const;

    /// The ids from the top-most ancestor down to this node.
    void GetAllIds(std::vector<NotificationNameId>& ids) const;

    void AddChild(NotificationName* child);
    void RemoveChild(NotificationName* child);
    void RemoveParent() noexcept { parent = nullptr; }

    static const String& GetSeparator();

private:
    const NotificationNameId id;
    const String name;
    NotificationName* parent;
    std::vector<NotificationName*> children;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
