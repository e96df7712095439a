// A NotificationRegistrationInfo read from hostile bytes as a service proxy reads it: the structure
// header, then Deserialize. A refused message raises the reader's CommunicationException or the record's
// NotSupportedException or NotImplementedException, nothing else. A record that was read writes out
// again to bytes that read back to the same record, and its names read as a text or are refused with
// InvalidCastException, whatever code the wire gave them.

#include "FuzzCheck.h"

#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/Wire.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <cstdint>
#include <optional>

using Kiv::System::Nm::NotificationRegistrationInfo;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
namespace Wire = Kiv::System::Nm::Services::Wire;

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
    RemotingReader reader(size == 0 ? nullptr : data, size);
    NotificationRegistrationInfo info;
    try
    {
        Wire::Read(reader, info);
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
    Wire::Write(first, info);
    RemotingReader again(first.GetData(), first.GetSize());
    NotificationRegistrationInfo copy;
    Wire::Read(again, copy);
    KIV_FUZZ_CHECK(again.IsAtEnd());
    RemotingWriter second;
    Wire::Write(second, copy);
    KIV_FUZZ_CHECK(first.GetBuffer() == second.GetBuffer());
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
