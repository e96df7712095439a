#pragma once

// The wire form of the values that service operations take and give. Proxy and stub write and read the
// same elements in the same order; elements carry type tags but no names.

#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Severity.h>
#include <Nm/TulString.h>
#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulReader.h>
#include <Kiv/System/Tul/TulWriter.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace Kiv::System::Nm
{
class Notification;
class NotificationRegistrationInfo;
}  // namespace Kiv::System::Nm

namespace Kiv::System::Nm::Services
{
/// The payload of a send as an operation's argument: borrowed from the caller, who keeps it, or owned once
/// read from a request, so that the serving side can take it over instead of copying it.
class PayloadArgument
{
public:
    PayloadArgument() = default;
    // Implicit: callers pass their vector as before.
    PayloadArgument(const std::vector<TulVariant<512>>& payload) : borrowed(&payload) {}

    const std::vector<TulVariant<512>>& Get() const { return borrowed != nullptr ? *borrowed : owned; }
    /// The vector itself when owned, else a copy of the borrowed one.
    std::vector<TulVariant<512>> Take() && { return borrowed != nullptr ? *borrowed : std::move(owned); }
    /// Where a request's payload is read into.
    std::vector<TulVariant<512>>& Own()
    {
        borrowed = nullptr;
        return owned;
    }

private:
    const std::vector<TulVariant<512>>* borrowed = nullptr;
    std::vector<TulVariant<512>> owned;
};
}  // namespace Kiv::System::Nm::Services
namespace Kiv::System::Nm::Services::Internal
{
struct NotificationBatch;
struct DispatchFailure;
}  // namespace Kiv::System::Nm::Services::Internal
namespace Kiv::System::Nm::Internal
{
struct BatchedNotification;
struct NotificationBatchAnswer;
}  // namespace Kiv::System::Nm::Internal

namespace Kiv::System::Nm::Services::Wire
{
using Tul::TulReader;
using Tul::TulWriter;

KIV_API void Write(TulWriter& writer, bool value);
KIV_API void Write(TulWriter& writer, Severity value);
KIV_API void Write(TulWriter& writer, NotificationRegistrationStatus value);
KIV_API void Write(TulWriter& writer, std::uint16_t value);
KIV_API void Write(TulWriter& writer, std::uint32_t value);
KIV_API void Write(TulWriter& writer, std::uint64_t value);
KIV_API void Write(TulWriter& writer, const TulString<512>& value);
/// Refuses the kind Unspecified before anything of it is written.
KIV_API void Write(TulWriter& writer, const DateTime& value);
KIV_API void Write(TulWriter& writer, const std::vector<std::uint32_t>& value);
KIV_API void Write(TulWriter& writer, const std::vector<TulVariant<512>>& value);
KIV_API void Write(TulWriter& writer, const Notification& value);
KIV_API void Write(TulWriter& writer, const NotificationRegistrationInfo& value);
/// Refuses, before anything is written, a batch whose counts don't match its notifications and ids.
KIV_API void Write(TulWriter& writer, const Internal::NotificationBatch& value);
KIV_API void Write(TulWriter& writer, const std::vector<Internal::DispatchFailure>& value);
/// Refuses more than MaxNotificationBatchLength notifications.
KIV_API void Write(TulWriter& writer,
                   const std::vector<::Kiv::System::Nm::Internal::BatchedNotification>& value);
KIV_API void Write(TulWriter& writer, const ::Kiv::System::Nm::Internal::NotificationBatchAnswer& value);

KIV_API void Read(TulReader& reader, bool& value);
KIV_API void Read(TulReader& reader, Severity& value);
KIV_API void Read(TulReader& reader, NotificationRegistrationStatus& value);
KIV_API void Read(TulReader& reader, std::uint16_t& value);
KIV_API void Read(TulReader& reader, std::uint32_t& value);
KIV_API void Read(TulReader& reader, std::uint64_t& value);
KIV_API void Read(TulReader& reader, TulString<512>& value);
/// Refuses the kind Unspecified after reading it.
KIV_API void Read(TulReader& reader, DateTime& value);
KIV_API void Read(TulReader& reader, std::vector<std::uint32_t>& value);
KIV_API void Read(TulReader& reader, std::vector<TulVariant<512>>& value);
/// Into a freshly made record: records append what they read.
KIV_API void Read(TulReader& reader, Notification& value);
KIV_API void Read(TulReader& reader, NotificationRegistrationInfo& value);

inline void Write(TulWriter& writer, const PayloadArgument& value)
{
    Write(writer, value.Get());
}

inline void Read(TulReader& reader, PayloadArgument& value)
{
    Read(reader, value.Own());
}
/// Into an empty batch. Refuses counts that don't match and payloads that would take more memory than
/// ServiceManager::GetMaxPayloadMemory allows, all of the batch's together.
KIV_API void Read(TulReader& reader, Internal::NotificationBatch& value);
/// Refuses indices that don't ascend strictly, and more failures than that memory bound allows.
KIV_API void Read(TulReader& reader, std::vector<Internal::DispatchFailure>& value);
/// Refuses more than MaxNotificationBatchLength notifications, and more payload fields over all of them
/// than one payload may have.
KIV_API void Read(TulReader& reader, std::vector<::Kiv::System::Nm::Internal::BatchedNotification>& value);
/// Refuses an answer with more ids than a batch can have, or a reason to stop that it does not know.
KIV_API void Read(TulReader& reader, ::Kiv::System::Nm::Internal::NotificationBatchAnswer& value);
}  // namespace Kiv::System::Nm::Services::Wire
