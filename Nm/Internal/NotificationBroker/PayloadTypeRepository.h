#pragma once

#include <Nm/IdType.h>

#include <Kiv/Export.h>
#include <Nm/Internal/NotificationBroker/IdGenerator.h>

#include <Kiv/BasicString.h>
#include <Kiv/Threading/Mutex.h>

#include <map>
#include <vector>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// Ids for payload type names. Asking for a name registers it, so a payload class can learn its id on
/// first use from any process.
class KIV_API PayloadTypeRepository
{
public:
    PayloadTypeRepository();

    PayloadTypeId GetPayloadTypeId(const String& payloadTypeName);
    String GetPayloadTypeName(const PayloadTypeId& payloadTypeId) const;
    bool Contains(const PayloadTypeId& payloadTypeId) const;
    /// The names of all payload types, the one of id 1 first: ids are handed out without gaps.
    std::vector<String> GetPayloadTypeNames() const;

private:
    using Table = std::map<String, PayloadTypeId>;

    static bool IsPayloadTypeNameValid(const String& payloadTypeName);
    static void ThrowIfPayloadTypeNameIsInvalid(const String& payloadTypeName);
    static void ThrowIfPayloadTypeIdIsInvalid(const PayloadTypeId& payloadTypeId);
    [[noreturn]] static void ThrowBecauseOfUnknownPayloadTypeId(const PayloadTypeId& payloadTypeId);
    Table::const_iterator FindByName(const String& payloadTypeName) const;
    Table::const_iterator FindById(const PayloadTypeId& payloadTypeId) const;
    Table::const_iterator InsertPayloadType(const String& payloadTypeName);

    IdGenerator<PayloadTypeId> idGenerator;
    Table table;
    mutable Commons::Threading::Mutex mutex;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
