// The wire form of a batch of notifications and of the answer to it, and the refusal of malformed ones
// before anything large is reserved.

#include <Nm/Services/Internal/NotificationBatch.h>
#include <Nm/Services/Wire.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

using namespace Kiv::System::Nm;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
using Services::Internal::DispatchFailure;
using Services::Internal::NotificationBatch;
namespace Wire = Services::Wire;
using Variant = TulVariant<512>;

namespace
{
const Kiv::DateTime utcTime = Kiv::DateTime::FromRawValue((std::uint64_t{1} << 62) | 638000000000000000ULL);

std::shared_ptr<Notification> Make(std::uint64_t id, std::size_t fields)
{
    return std::make_shared<Notification>(NotificationId(id), NotificationNameId(40 + id), utcTime,
                                          Severity::Info, PayloadTypeId(3),
                                          std::vector<Variant>(fields, Variant("f {}")));
}

std::vector<std::uint8_t> Written(const std::function<void(RemotingWriter&)>& write)
{
    RemotingWriter writer;
    write(writer);
    return writer.GetBuffer();
}

/// The message of what reading `bytes` as a T raised.
template <class T>
std::string Refusal(const std::vector<std::uint8_t>& bytes)
{
    RemotingReader reader(bytes.data(), bytes.size());
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

/// The counts and ids as given, then `notifications` records of one field each.
std::vector<std::uint8_t> Batch(std::vector<std::uint32_t> counts, std::vector<std::uint32_t> ids,
                                std::uint32_t notifications, std::size_t fields = 1)
{
    return Written(
        [&](RemotingWriter& w)
        {
            Wire::Write(w, counts), Wire::Write(w, ids);
            w.WriteTag(Kiv::System::Tul::TulType::Array), w.WriteTag(Kiv::System::Tul::TulType::Object);
            w.WriteArrayLength(notifications);
            for (std::uint32_t index = 0; index < notifications; ++index)
            {
                Wire::Write(w, *Make(index, fields));
            }
        });
}
}  // namespace

TEST(NotificationBatchWireTest, ABatchAndItsFailuresComeBackAsTheyWent)
{
    NotificationBatch batch;
    const std::uint32_t ids[] = {1, 7, 9};
    batch.Add(Make(1, 2), ids, 2);
    batch.Add(Make(2, 0), ids, 0);
    batch.Add(Make(3, 1), ids + 2, 1);
    const auto bytes = Written([&](RemotingWriter& w) { Wire::Write(w, batch); });
    RemotingReader reader(bytes.data(), bytes.size());
    NotificationBatch read;
    Wire::Read(reader, read);
    EXPECT_TRUE(reader.IsAtEnd());
    EXPECT_EQ(read.nameIdCounts, (std::vector<std::uint32_t>{2, 0, 1}));
    EXPECT_EQ(read.nameIds, (std::vector<std::uint32_t>{1, 7, 9}));
    ASSERT_EQ(read.Size(), 3u);
    for (std::size_t index = 0; index < 3; ++index)
    {
        const Notification& sent = *batch.notifications[index];
        const Notification& got = *read.notifications[index];
        EXPECT_EQ(got.GetId(), sent.GetId());
        EXPECT_EQ(got.GetNotificationNameId(), sent.GetNotificationNameId());
        EXPECT_EQ(got.GetPayload().size(), sent.GetPayload().size());
    }

    const std::vector<DispatchFailure> failures{{1, TulString<512>("first")}, {4, TulString<512>("second")}};
    const auto answer = Written([&](RemotingWriter& w) { Wire::Write(w, failures); });
    RemotingReader answerReader(answer.data(), answer.size());
    std::vector<DispatchFailure> readFailures;
    Wire::Read(answerReader, readFailures);
    ASSERT_EQ(readFailures.size(), 2u);
    EXPECT_EQ(readFailures[1].index, 4u);
    EXPECT_STREQ(readFailures[1].message.GetChars(), "second");

    batch.nameIds.pop_back();
    EXPECT_THROW(Written([&](RemotingWriter& w) { Wire::Write(w, batch); }), Kiv::ArgumentException);
}

TEST(NotificationBatchWireTest, MalformedBatchesAndAnswersAreRefusedBeforeTheyAreReserved)
{
    // Room for the payload of one notification of three fields, not for those of two of two fields.
    auto settings = Kiv::System::Tul::ServiceManager::GetSettings();
    settings.maxPayloadMemory = 3 * sizeof(Variant);
    Kiv::System::Tul::ServiceManager::Configure(settings);
    const auto failures = [](std::vector<std::uint32_t> indices)
    {
        return Written(
            [&](RemotingWriter& w)
            {
                w.WriteTag(Kiv::System::Tul::TulType::Array), w.WriteTag(Kiv::System::Tul::TulType::Object);
                w.WriteArrayLength(static_cast<std::uint32_t>(indices.size()));
                for (std::uint32_t index : indices)
                {
                    Wire::Write(w, index), Wire::Write(w, TulString<512>("x"));
                }
            });
    };
    const std::pair<std::string, std::string> cases[] = {
        {Refusal<NotificationBatch>(Batch({2}, {5}, 1)),
         "Malformed batch of notifications: id counts for 2 ids, 1 ids"},
        {Refusal<NotificationBatch>(Batch({1}, {5}, 2)),
         "Malformed batch of notifications: 2 notifications, 1 id counts"},
        {Refusal<NotificationBatch>(Batch({0, 0}, {}, 2, 2)),
         "The payloads of a batch of 2 notifications would take more than the 1560 bytes allowed"},
        {Refusal<NotificationBatch>(Batch({0}, {}, 1, 3)), "read"},
        {Refusal<std::vector<DispatchFailure>>(failures({1, 2, 3, 4})),
         "Malformed answer to a batch: 4 failures would take more than 1560 bytes"},
        {Refusal<std::vector<DispatchFailure>>(failures({2, 2})),
         "Malformed answer to a batch: failure of notification 2 after 2"},
    };
    Kiv::System::Tul::Testing::UseNewTransport();
    for (const auto& [got, expected] : cases)
    {
        EXPECT_EQ(got, expected);
    }
    // A count that the bytes behind it can't hold is refused by the reader before it is reserved.
    auto huge = Batch({}, {}, 0);
    huge[2] = 0xFF, huge[3] = 0xFF, huge[4] = 0xFF, huge[5] = 0x0F;
    EXPECT_THAT(Refusal<NotificationBatch>(huge), ::testing::HasSubstr("an array length of at most"));
}
