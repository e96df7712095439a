// Payloads as they come from other processes: read off the wire within the memory bound.

#include <Nm/Internal/TulVariantSerializer.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::TulVariantSerializer;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
using Kiv::System::Tul::ServiceManager;
using Kiv::System::Tul::TulSettings;
using Variant = TulVariant<512>;
using Payload = std::vector<Variant>;

namespace
{
/// An array of `length` one-byte elements of objects, the first `valid` of them readable.
RemotingWriter ArrayOfVoids(std::uint32_t length, std::uint32_t valid)
{
    RemotingWriter writer;
    writer.WriteTag(TulType::Array);
    writer.WriteTag(TulType::Object);
    writer.WriteArrayLength(length);
    for (std::uint32_t i = 0; i < length; ++i)
    {
        writer.WriteObjectType(i < valid ? TulType::Void : TulType::None);
    }
    return writer;
}
}  // namespace

TEST(TulVariantSerializerTest, APayloadIsBoundedByMemoryNotByAFieldCount)
{
    // The default admits far more fields than one frame of strings would need.
    const Payload large(100000, Variant(std::int32_t{7}));
    RemotingWriter writer;
    TulVariantSerializer::WritePayload(writer, large);
    RemotingReader reader(writer.GetData(), writer.GetSize());
    Payload received;
    TulVariantSerializer::ReadPayload(reader, received);
    ASSERT_EQ(received.size(), large.size());
    EXPECT_EQ(received.back().GetType(), TulType::Int32);

    // Under a bound of 100 elements' memory, an announced 101 is refused before anything is reserved,
    // also when the elements already held make up the difference.
    const TulSettings original = ServiceManager::GetSettings();
    TulSettings tight = original;
    tight.maxPayloadMemory = 100 * sizeof(Variant);
    ServiceManager::Configure(tight);
    const RemotingWriter hostile = ArrayOfVoids(101, 101);
    RemotingReader hostileReader(hostile.GetData(), hostile.GetSize());
    Payload refused;
    EXPECT_THROW(TulVariantSerializer::ReadPayload(hostileReader, refused), Kiv::ArgumentException);
    EXPECT_EQ(refused.capacity(), 0u);
    const RemotingWriter ninety = ArrayOfVoids(90, 90);
    RemotingReader appended(ninety.GetData(), ninety.GetSize());
    Payload held(11, Variant(TulType::Void));
    EXPECT_THROW(TulVariantSerializer::ReadPayload(appended, held), Kiv::ArgumentException);

    // Within the bound the whole announced length is reserved first, and a broken element stops the
    // reading where it is.
    const RemotingWriter exact = ArrayOfVoids(100, 1);
    RemotingReader exactReader(exact.GetData(), exact.GetSize());
    Payload partial;
    EXPECT_THROW(TulVariantSerializer::ReadPayload(exactReader, partial), Kiv::NotSupportedException);
    EXPECT_EQ(partial.size(), 1u);
    EXPECT_EQ(partial.capacity(), 100u);
    ServiceManager::Configure(original);
}
