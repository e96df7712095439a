// Malformed batches and answers are refused before anything large is reserved (that they cross intact
// shows the dispatcher's batch test, over a connection).

#include <Nm/Services/Internal/NotificationBatch.h>
#include <Nm/Services/Wire.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using Kiv::System::Tul::RemotingWriter;
using Kiv::System::Tul::TulType;
using Services::Internal::DispatchFailure;
using Services::Internal::NotificationBatch;
namespace Wire = Services::Wire;

namespace
{
/// The counts and ids as given, then `notifications` records of `fields` fields each.
std::vector<std::uint8_t> Batch(std::vector<std::uint32_t> counts, std::vector<std::uint32_t> ids,
                                std::uint32_t notifications, std::size_t fields = 1)
{
    RemotingWriter w;
    Wire::Write(w, counts), Wire::Write(w, ids), w.WriteTag(TulType::Array), w.WriteTag(TulType::Object);
    w.WriteArrayLength(notifications);
    for (std::uint32_t index = 0; index < notifications; ++index)
    {
        Wire::Write(w, Notification(NotificationId(index), NotificationNameId(1), Kiv::DateTime::GetUtcNow(),
                                    Severity::Info, PayloadTypeId(3),
                                    std::vector<TulVariant<512>>(fields, TulVariant<512>("f"))));
    }
    return w.GetBuffer();
}

std::vector<std::uint8_t> Failures(std::vector<std::uint32_t> indices)
{
    RemotingWriter w;
    w.WriteTag(TulType::Array), w.WriteTag(TulType::Object),
        w.WriteArrayLength(std::uint32_t(indices.size()));
    for (std::uint32_t index : indices)
    {
        Wire::Write(w, index), Wire::Write(w, TulString<512>("x"));
    }
    return w.GetBuffer();
}

/// The message of what reading the written bytes as a T raised.
template <class T>
std::string Refusal(const std::vector<std::uint8_t>& bytes)
{
    Kiv::System::Tul::RemotingReader reader(bytes.data(), bytes.size());
    T value;
    try
    {
        Wire::Read(reader, value);
    }
    catch (const Kiv::Exception& e)
    {
        return e.GetMessage();
    }
    return "read";
}
}  // namespace

TEST(NotificationBatchWireTest, MalformedBatchesAndAnswersAreRefusedBeforeTheyAreReserved)
{
    // Room for the payload of one notification of three fields, not for those of two of two fields.
    auto settings = Kiv::System::Tul::ServiceManager::GetSettings();
    settings.maxPayloadMemory = 3 * sizeof(TulVariant<512>);
    Kiv::System::Tul::ServiceManager::Configure(settings);
    EXPECT_EQ(Refusal<NotificationBatch>(Batch({2}, {5}, 1)),
              "Malformed batch of notifications: id counts for 2 ids, 1 ids");
    EXPECT_EQ(Refusal<NotificationBatch>(Batch({1}, {5}, 2)),
              "Malformed batch of notifications: 2 notifications, 1 id counts");
    EXPECT_EQ(Refusal<NotificationBatch>(Batch({0, 0}, {}, 2, 2)),
              "The payloads of a batch of 2 notifications would take more than the 1560 bytes allowed");
    EXPECT_EQ(Refusal<NotificationBatch>(Batch({0}, {}, 1, 3)), "read");
    EXPECT_EQ(Refusal<std::vector<DispatchFailure>>(Failures({1, 2, 3, 4})),
              "Malformed answer to a batch: 4 failures would take more than 1560 bytes");
    EXPECT_EQ(Refusal<std::vector<DispatchFailure>>(Failures({2, 2})),
              "Malformed answer to a batch: failure of notification 2 after 2");
}
