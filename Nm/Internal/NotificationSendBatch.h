#pragma once

#include <Nm/IdType.h>
#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm::Internal
{
/// The most notifications that go to the broker in one call. Enough to make the round trip's cost small
/// against the notifications' own (64 payloads of a few fields are a few kilobytes on the wire), and small
/// enough that a batch holds the broker's stop lock and a connection only briefly. The receiving side
/// refuses longer batches.
constexpr std::uint32_t MaxNotificationBatchLength = 64;

/// One notification of a batch: what a single send carries.
struct BatchedNotification
{
    NotificationNameId notificationNameId;
    DateTime timestamp;
    std::vector<TulVariant<512>> payload;
};

/// The broker's answer to a batch, which it takes in order up to the first notification that it does not
/// take: the ids of those it took, and why it stopped before the rest, if it did.
struct NotificationBatchAnswer
{
    enum class Stop : std::uint8_t
    {
        /// All were taken.
        None = 0,
        /// The queue was full at the notification behind the taken ones: it was dropped, as a single send
        /// that returns id 0, and the rest were not looked at.
        Refused = 1,
        /// The notification behind the taken ones failed as a single send would have thrown; the rest were
        /// not looked at. The failure itself is for a single send to report.
        Failed = 2,
    };

    std::vector<NotificationId> ids;
    Stop stop = Stop::None;
};
}  // namespace Kiv::System::Nm::Internal
