// A NotificationRegistrationInfo read from hostile bytes as a service proxy reads it: the structure
// header, then Deserialize. A refused message raises the reader's CommunicationException or the record's
// NotSupportedException or NotImplementedException, nothing else. A record that was read writes out
// again to bytes that read back to the same record, and its names read as a text or are refused with
// InvalidCastException, whatever code the wire gave them.

#include "WireRoundTrip.h"

#include <Nm/NotificationRegistrationInfo.h>

#include <Kiv/Exceptions.h>

#include <cstdint>
#include <optional>

using Kiv::System::Nm::NotificationRegistrationInfo;

namespace
{
template <class Get>
std::optional<Kiv::String> TextOf(Get get)
{
    try
    {
        return get();
    }
    catch (const Kiv::InvalidCastException&)
    {
        return std::nullopt;
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto read = KivFuzz::ReadRecord<NotificationRegistrationInfo>(data, size);
    if (!read)
    {
        return 0;
    }
    const NotificationRegistrationInfo& info = *read;
    const NotificationRegistrationInfo copy = KivFuzz::WriteAndReadBack(info);
    KIV_FUZZ_CHECK(copy.GetNotificationNameId() == info.GetNotificationNameId());
    KIV_FUZZ_CHECK(copy.GetSeverity() == info.GetSeverity());
    KIV_FUZZ_CHECK(copy.GetPayloadTypeId() == info.GetPayloadTypeId());
    KIV_FUZZ_CHECK(copy.GetStatus() == info.GetStatus());
    const auto name = TextOf([&] { return info.GetNotificationName(); });
    const auto sender = TextOf([&] { return info.GetSenderName(); });
    KIV_FUZZ_CHECK(name == TextOf([&] { return copy.GetNotificationName(); }));
    KIV_FUZZ_CHECK(sender == TextOf([&] { return copy.GetSenderName(); }));
    KIV_FUZZ_CHECK(!name || name->size() < 512);
    return 0;
}
