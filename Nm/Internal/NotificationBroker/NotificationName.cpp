#include <Nm/Internal/NotificationBroker/NotificationName.h>

#include <Kiv/Exceptions.h>

#include <algorithm>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
namespace
{
const String separator(".");
}

NotificationName::NotificationName(NotificationNameId id, const String& name, NotificationName* parent)
    : id(id), name(name), parent(parent)
{
    if (parent != nullptr)
    {
        parent->AddChild(this);
    }
}

NotificationName::NotificationName(NotificationNameId id, const String& name, NotificationName& parent)
    : NotificationName(id, name, &parent)
{
}

NotificationName::~NotificationName()
{
    if (parent != nullptr)
    {
        parent->RemoveChild(this);
    }
    for (NotificationName* child : children)
    {
        child->RemoveParent();
    }
}

String NotificationName::GetFullName() const
{
    if (parent == nullptr)
    {
        return name;
    }
    String fullName = parent->GetFullName();
    fullName += separator;
    fullName += name;
    return fullName;
}

NotificationName& NotificationName::GetParent() const
{
    if (parent == nullptr)
    {
        throw InvalidOperationException("{0}: NotificationName has no parent. Id={1}, name={2}", "GetParent",
                                        id, name);
    }
    return *parent;
}

void NotificationName::GetAllIds(std::vector<NotificationNameId>& ids) const
{
    if (parent != nullptr)
    {
        parent->GetAllIds(ids);
    }
    ids.push_back(id);
}

void NotificationName::AddChild(NotificationName* child)
{
    children.push_back(child);
}

void NotificationName::RemoveChild(NotificationName* child)
{
    children.erase(std::remove(children.begin(), children.end(), child), children.end());
}

const String& NotificationName::GetSeparator()
{
    return separator;
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
