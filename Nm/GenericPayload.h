#pragma once

#include <Nm/IPayload.h>

#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulType.h>

#include <boost/container/small_vector.hpp>

#include <cstdint>
#include <memory>

namespace Kiv::System::Nm
{
class Notification;

/// A payload by explicit field indexes. Either under construction, holding its own fields, or wrapping a
/// received notification, whose fields it reads and must not outlive; the latter is read-only. Fields are
/// declared with AddField in the same order in both forms, so the indexes agree.
class KIV_API GenericPayload : public IPayload
{
public:
    /// Wraps `notification`, with its payload type and no name.
    explicit GenericPayload(const Notification& notification);
    GenericPayload(PayloadTypeId payloadTypeId, const String& payloadTypeName);
    /// Takes a copy of `rawPayload` as the fields' values.
    GenericPayload(PayloadTypeId payloadTypeId, const String& payloadTypeName,
                   const std::vector<TulVariant<512>>& rawPayload);
    /// Wraps `notification`, which must be of the given type: ArgumentException otherwise.
    GenericPayload(PayloadTypeId payloadTypeId, const String& payloadTypeName,
                   const Notification& notification);
    /// As above, sharing the name instead of copying it: a payload class keeps one for all its objects.
    GenericPayload(PayloadTypeId payloadTypeId, std::shared_ptr<const String> payloadTypeName);
    GenericPayload(PayloadTypeId payloadTypeId, std::shared_ptr<const String> payloadTypeName,
                   const Notification& notification);

    PayloadTypeId GetId() const override;
    String GetName() const override;
    const std::vector<TulVariant<512>>& GetAsRawPayloadType() const override;
    std::vector<TulVariant<512>>& MoveOutRawPayload();
    String ToString() const override;

    /// The declared fields only.
    std::uint32_t GetFieldCount() const;
    std::uint32_t GetFieldIndexFormatString() const;
    bool HasAssociatedNotification() const;
    bool IsReadOnly() const;
    bool CanFieldBeAdded() const;
    /// Declares the next field and returns its index; under construction it also makes an unset value
    /// unless the given vector already holds one.
    std::uint32_t AddField(Tul::TulType type);
    const TulVariant<512>& GetFieldValue(std::uint32_t fieldIndex) const;
    Tul::TulType GetFieldType(std::uint32_t fieldIndex) const;
    /// Stores `value` with its own code; the declared type is not compared.
    void SetFieldValue(std::uint32_t fieldIndex, const TulVariant<512>& value);

private:
    /// Room for this many fields is made at once: most payloads have no more, and a send builds one.
    static constexpr std::size_t InitialFieldCapacity = 4;

    void InitializeFields();
    const String& GetNameReference() const;
    [[noreturn]] void ThrowBecauseOfWrongType(const String& payloadTypeName) const;

    PayloadTypeId payloadTypeId;
    String payloadTypeName;
    /// When set, the name, and payloadTypeName is empty.
    std::shared_ptr<const String> sharedPayloadTypeName;
    const Notification* notification = nullptr;
    std::vector<TulVariant<512>> rawPayload;
    boost::container::small_vector<Tul::TulType, 16> fieldTypes;
    std::uint32_t fieldIndexFormatString = 0;
};
}  // namespace Kiv::System::Nm
