#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>

#include <Kiv/Exceptions.h>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Commons::Threading::Mutex;

NotificationNameRepository::NotificationNameRepository() : mutex(true) {}

NotificationNameId NotificationNameRepository::Add(const String& name)
{
    Mutex::ScopedLock lock(mutex);
    return AddImpl(name);
}

NotificationNameId NotificationNameRepository::AddOrGetId(const String& name)
{
    Mutex::ScopedLock lock(mutex);
    if (NotificationName* node = GetName(name))
    {
        return node->GetId();
    }
    return AddImpl(name);
}

NotificationNameId NotificationNameRepository::GetId(const String& name) const
{
    Mutex::ScopedLock lock(mutex);
    NotificationName* node = GetName(name);
    if (node == nullptr)
    {
        OnQueryUnknown(name);
    }
    return node->GetId();
}

bool NotificationNameRepository::Contains(NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return container.find(id) != container.end();
}

bool NotificationNameRepository::Contains(const String& name) const
{
    Mutex::ScopedLock lock(mutex);
    return ContainsImpl(name);
}

String NotificationNameRepository::GetFullName(NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return GetNode(id).GetFullName();
}

bool NotificationNameRepository::HasChildren(NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return HasChildrenImpl(id);
}

bool NotificationNameRepository::HasParent(NotificationNameId id) const
{
    Mutex::ScopedLock lock(mutex);
    return GetNode(id).HasParent();
}

void NotificationNameRepository::GetMatchingIds(NotificationNameId id,
                                                std::vector<NotificationNameId>& ids) const
{
    ids.clear();
    Mutex::ScopedLock lock(mutex);
    GetNode(id).GetAllIds(ids);
}

void NotificationNameRepository::Remove(NotificationNameId id)
{
    Mutex::ScopedLock lock(mutex);
    if (HasChildrenImpl(id))
    {
        OnRemoveWithChildren(id);
    }
    auto row = container.find(id);
    if (row == container.end())
    {
        OnRemoveUnknown(id);
    }
    container.erase(row);
}

NotificationNameId NotificationNameRepository::AddImpl(const String& name)
{
    if (ContainsImpl(name))
    {
        OnAddDuplicate(name);
    }
    std::vector<String> tokens;
    boost::algorithm::split(tokens, name, boost::algorithm::is_any_of(NotificationName::GetSeparator()),
                            boost::algorithm::token_compress_off);
    NotificationName* parent = GetParent(GetParentName(tokens));
    const NotificationNameId id = idGenerator.Next();
    // Once the generator has wrapped every new name gets id 0; the first such row stays.
    container.emplace(id, std::make_unique<NotificationName>(id, GetLeafName(tokens), parent));
    byName.emplace(name, container.at(id).get());
    return id;
}

bool NotificationNameRepository::ContainsImpl(const String& name) const
{
    return byName.find(name) != byName.end();
}

bool NotificationNameRepository::HasChildrenImpl(NotificationNameId id) const
{
    return GetNode(id).HasChildren();
}

NotificationName* NotificationNameRepository::GetName(const String& name) const
{
    auto row = byName.find(name);
    return row == byName.end() ? nullptr : row->second;
}

NotificationName* NotificationNameRepository::GetParent(const String& parentName)
{
    if (parentName.empty())
    {
        return nullptr;
    }
    if (NotificationName* node = GetName(parentName))
    {
        return node;
    }
    return container.at(AddImpl(parentName)).get();
}

const NotificationName& NotificationNameRepository::GetNode(NotificationNameId id) const
{
    auto row = container.find(id);
    if (row == container.end())
    {
        OnQueryUnknown(id);
    }
    return *row->second;
}

String NotificationNameRepository::GetParentName(const std::vector<String>& tokens)
{
    String parentName;
    for (std::size_t i = 0; i + 1 < tokens.size(); ++i)
    {
        if (i != 0)
        {
            parentName += NotificationName::GetSeparator();
        }
        parentName += tokens[i];
    }
    return parentName;
}

String NotificationNameRepository::GetLeafName(const std::vector<String>& tokens)
{
    return tokens.back();
}

void NotificationNameRepository::OnAddDuplicate(const String& name)
{
    throw InvalidOperationException(
        "NotificationNameRepository: Tried to add duplicate notification name: {0}", name);
}

void NotificationNameRepository::OnRemoveUnknown(NotificationNameId id)
{
    throw InvalidOperationException("NotificationNameRepository: Repository does not contain id={0}", id);
}

void NotificationNameRepository::OnQueryUnknown(NotificationNameId id)
{
    throw InvalidOperationException("NotificationNameRepository: Repository does not contain id={0}", id);
}

void NotificationNameRepository::OnRemoveWithChildren(NotificationNameId id)
{
    throw InvalidOperationException(
        "NotificationNameRepository: Tried to remove id={0}, but it has children!", id);
}

void NotificationNameRepository::OnQueryUnknown(const String& name)
{
    throw InvalidOperationException("NotificationNameRepository: {0}",
                                    String::Format("tried to query unknown notification name: {0}", name));
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
