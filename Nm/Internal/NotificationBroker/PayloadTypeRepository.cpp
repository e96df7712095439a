#include <Nm/Internal/NotificationBroker/PayloadTypeRepository.h>

#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Commons::Threading::Mutex;

PayloadTypeRepository::PayloadTypeRepository() : mutex(true) {}

PayloadTypeId PayloadTypeRepository::GetPayloadTypeId(const String& payloadTypeName)
{
    ThrowIfPayloadTypeNameIsInvalid(payloadTypeName);
    Mutex::ScopedLock lock(mutex);
    auto row = FindByName(payloadTypeName);
    if (row == table.end())
    {
        row = InsertPayloadType(payloadTypeName);
    }
    return row->second;
}

String PayloadTypeRepository::GetPayloadTypeName(const PayloadTypeId& payloadTypeId) const
{
    ThrowIfPayloadTypeIdIsInvalid(payloadTypeId);
    Mutex::ScopedLock lock(mutex);
    auto row = FindById(payloadTypeId);
    if (row == table.end())
    {
        ThrowBecauseOfUnknownPayloadTypeId(payloadTypeId);
    }
    return row->first;
}

std::vector<String> PayloadTypeRepository::GetPayloadTypeNames() const
{
    Mutex::ScopedLock lock(mutex);
    std::vector<String> names(table.size());
    for (const auto& [name, id] : table)
    {
        names.at(id.GetValue() - 1) = name;
    }
    return names;
}

bool PayloadTypeRepository::Contains(const PayloadTypeId& payloadTypeId) const
{
    ThrowIfPayloadTypeIdIsInvalid(payloadTypeId);
    Mutex::ScopedLock lock(mutex);
    return FindById(payloadTypeId) != table.end();
}

bool PayloadTypeRepository::IsPayloadTypeNameValid(const String& payloadTypeName)
{
    return !payloadTypeName.empty();
}

void PayloadTypeRepository::ThrowIfPayloadTypeNameIsInvalid(const String& payloadTypeName)
{
    if (!IsPayloadTypeNameValid(payloadTypeName))
    {
        throw ArgumentException::Create("payloadTypeName", payloadTypeName,
                                        "The supplied payload type name is invalid.");
    }
}

void PayloadTypeRepository::ThrowIfPayloadTypeIdIsInvalid(const PayloadTypeId& payloadTypeId)
{
    if (payloadTypeId == PayloadTypeId())
    {
        throw ArgumentException::Create("payloadTypeId", payloadTypeId,
                                        "The supplied payload type id is invalid.");
    }
}

void PayloadTypeRepository::ThrowBecauseOfUnknownPayloadTypeId(const PayloadTypeId& payloadTypeId)
{
    throw ArgumentException::Create("payloadTypeId", payloadTypeId,
                                    "The supplied payload type id is unknown.");
}

PayloadTypeRepository::Table::const_iterator PayloadTypeRepository::FindByName(
    const String& payloadTypeName) const
{
    return table.find(payloadTypeName);
}

PayloadTypeRepository::Table::const_iterator PayloadTypeRepository::FindById(
    const PayloadTypeId& payloadTypeId) const
{
    for (auto row = table.begin(); row != table.end(); ++row)
    {
        if (row->second == payloadTypeId)
        {
            return row;
        }
    }
    return table.end();
}

PayloadTypeRepository::Table::const_iterator PayloadTypeRepository::InsertPayloadType(
    const String& payloadTypeName)
{
    return table.emplace(payloadTypeName, idGenerator.Next()).first;
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
