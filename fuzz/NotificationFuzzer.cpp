// A Notification read from hostile bytes as a service stub reads it: the structure header, then
// Deserialize. A refused message raises the reader's CommunicationException or the record's own
// NotSupportedException or NotImplementedException, nothing else. A record that was read writes out
// again, and what it writes reads back to a record that writes the same bytes: nothing read is lost or
// changed on its way to the next process.

#include "WireRoundTrip.h"

#include <Nm/Notification.h>

#include <Kiv/Exceptions.h>

#include <cstdint>

using Kiv::System::Nm::Notification;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto read = KivFuzz::ReadRecord<Notification>(data, size);
    if (!read)
    {
        return 0;
    }
    const Notification& notification = *read;
    const Notification copy = KivFuzz::WriteAndReadBack(notification);
    KIV_FUZZ_CHECK(copy.GetId() == notification.GetId());
    KIV_FUZZ_CHECK(copy.GetNotificationNameId() == notification.GetNotificationNameId());
    KIV_FUZZ_CHECK(copy.GetTimestamp().GetRawValue() == notification.GetTimestamp().GetRawValue());
    KIV_FUZZ_CHECK(copy.GetSeverity() == notification.GetSeverity());
    KIV_FUZZ_CHECK(copy.GetPayloadTypeId() == notification.GetPayloadTypeId());
    KIV_FUZZ_CHECK(copy.GetPayload().size() == notification.GetPayload().size());
    return 0;
}
