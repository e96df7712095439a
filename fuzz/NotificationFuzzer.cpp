// A Notification read from hostile bytes as a service stub reads it: the structure header, then
// Deserialize. A refused message raises the reader's CommunicationException or the record's own
// NotSupportedException or NotImplementedException, nothing else. A record that was read writes out
// again, and what it writes reads back to a record that writes the same bytes: nothing read is lost or
// changed on its way to the next process.

#include "FuzzCheck.h"

#include <Nm/Notification.h>
#include <Nm/Services/Wire.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <cstdint>

using Kiv::System::Nm::Notification;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
namespace Wire = Kiv::System::Nm::Services::Wire;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    RemotingReader reader(size == 0 ? nullptr : data, size);
    Notification notification;
    try
    {
        Wire::Read(reader, notification);
    }
    catch (const Kiv::CommunicationException&)
    {
        return 0;
    }
    catch (const Kiv::NotSupportedException&)
    {
        return 0;
    }
    catch (const Kiv::NotImplementedException&)
    {
        return 0;
    }

    RemotingWriter first;
    Wire::Write(first, notification);
    RemotingReader again(first.GetData(), first.GetSize());
    Notification copy;
    Wire::Read(again, copy);
    KIV_FUZZ_CHECK(again.IsAtEnd());
    RemotingWriter second;
    Wire::Write(second, copy);
    KIV_FUZZ_CHECK(first.GetBuffer() == second.GetBuffer());
    KIV_FUZZ_CHECK(copy.GetId() == notification.GetId());
    KIV_FUZZ_CHECK(copy.GetNotificationNameId() == notification.GetNotificationNameId());
    KIV_FUZZ_CHECK(copy.GetTimestamp().GetRawValue() == notification.GetTimestamp().GetRawValue());
    KIV_FUZZ_CHECK(copy.GetSeverity() == notification.GetSeverity());
    KIV_FUZZ_CHECK(copy.GetPayloadTypeId() == notification.GetPayloadTypeId());
    KIV_FUZZ_CHECK(copy.GetPayload().size() == notification.GetPayload().size());
    return 0;
}
