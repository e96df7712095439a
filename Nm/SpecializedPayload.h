#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include <Nm/GenericPayload.h>
#include <Nm/IPayload.h>

namespace Kiv::System::Nm
{
class Notification;

/// The base of a payload class `T`: the class's readable name is its payload type name, and its payload
/// type id is asked for once per process, at the first use, and kept.
template <class T>
class SpecializedPayload : public IPayload
{
public:
    static PayloadTypeId GetPayloadTypeId();
    static String GetPayloadTypeName();

    PayloadTypeId GetId() const override { return GetPayloadTypeId(); }
    String GetName() const override { return GetPayloadTypeName(); }
    const std::vector<TulVariant<512>>& GetAsRawPayloadType() const override
    {
        return payload.GetAsRawPayloadType();
    }
    String ToString() const override { return payload.ToString(); }

    /// Sets field 0; refused at 512 characters or more, and on a payload that wraps a notification.
    void SetFormatString(const String& formatString);

protected:
    /// A payload under construction.
    explicit SpecializedPayload(const String& formatString);
    /// A payload under construction with the type id given, which need not be asked for: for the fields
    /// of a payload in a process without a NotificationManager. GetId still answers GetPayloadTypeId().
    SpecializedPayload(PayloadTypeId payloadTypeId, const String& formatString);
    /// A read-only view of a received notification, which must be of this type and outlive the object.
    explicit SpecializedPayload(const Notification& notification);

    GenericPayload payload;

private:
    /// The name, made once per process and shared by every object of the class.
    static const std::shared_ptr<const String>& GetSharedPayloadTypeName();

    // Fetched at first use and kept to the end of the process, whatever brokers come and go. Racing
    // first uses get the same id from the broker and store the same value; the relaxed atomic costs what
    // a plain variable does and keeps that benign race visible as such to the thread checkers.
    static inline std::atomic<std::uint16_t> cachedPayloadTypeId{0};
    // Read on every send, also from time-critical code: no core of ours may need a hidden lock for it.
    static_assert(std::atomic<std::uint16_t>::is_always_lock_free, "the cached id needs a lock-free atomic");
};
}  // namespace Kiv::System::Nm

#include <Nm/SpecializedPayload.inl>
