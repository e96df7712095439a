#pragma once

#include <atomic>
#include <cstdint>

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
    /// A read-only view of a received notification, which must be of this type and outlive the object.
    explicit SpecializedPayload(const Notification& notification);

    GenericPayload payload;

private:
    // The setup generation in the high half, the id in the low. Racing first uses get the same id from
    // the broker and store the same value, so a plain relaxed store will do.
    static inline std::atomic<std::uint64_t> cachedPayloadTypeId{0};
    // Read on every send, also from time-critical code: a 32-bit core must do it without a hidden lock
    // (ARMv7 does, with its doubleword exclusives).
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free,
                  "the cached id needs a lock-free 64-bit atomic");
};
}  // namespace Kiv::System::Nm

#include <Nm/SpecializedPayload.inl>
