#include <Nm/Internal/TulVariantSerializer.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gtest/gtest.h>

using Kiv::System::Nm::Internal::TulVariantSerializer;
using Kiv::System::Tul::RemotingReader;
using Kiv::System::Tul::RemotingWriter;
using Kiv::System::Tul::TulType;

TEST(TulVariantSerializerTest, AHostileArrayLengthReservesNoMoreThanAnHonestPayloadNeeds)
{
    // The most elements allowed, the second one broken: the reader must fail there without having
    // reserved all of them first.
    constexpr std::uint32_t Announced = TulVariantSerializer::MaxPayloadElements;
    RemotingWriter writer;
    writer.WriteTag(TulType::Array);
    writer.WriteTag(TulType::Object);
    writer.WriteArrayLength(Announced);
    writer.WriteObjectType(TulType::Void);
    for (std::uint32_t i = 1; i < Announced; ++i)
    {
        writer.WriteObjectType(TulType::None);
    }
    RemotingReader reader(writer.GetData(), writer.GetSize());
    std::vector<TulVariantSerializer::Variant> payload;
    EXPECT_THROW(TulVariantSerializer::ReadPayload(reader, payload), Kiv::NotSupportedException);
    EXPECT_EQ(payload.size(), 1u);
    EXPECT_LE(payload.capacity(), TulVariantSerializer::MaxReservedElements);
}

TEST(TulVariantSerializerTest, APayloadLongerThanTheBoundIsRefusedBothWays)
{
    using Variant = TulVariantSerializer::Variant;
    constexpr std::uint32_t Bound = TulVariantSerializer::MaxPayloadElements;

    // One-byte elements are the costly case in memory: the bound is refused before any is read.
    RemotingWriter hostile;
    hostile.WriteTag(TulType::Array);
    hostile.WriteTag(TulType::Object);
    hostile.WriteArrayLength(Bound + 1);
    for (std::uint32_t i = 0; i <= Bound; ++i)
    {
        hostile.WriteObjectType(TulType::Void);
    }
    RemotingReader reader(hostile.GetData(), hostile.GetSize());
    std::vector<Variant> read;
    EXPECT_THROW(TulVariantSerializer::ReadPayload(reader, read), Kiv::ArgumentException);
    EXPECT_TRUE(read.empty());

    std::vector<Variant> payload(Bound + 1, Variant(TulType::Void));
    RemotingWriter refused;
    EXPECT_THROW(TulVariantSerializer::WritePayload(refused, payload), Kiv::ArgumentException);

    // Exactly the bound travels.
    payload.pop_back();
    RemotingWriter writer;
    TulVariantSerializer::WritePayload(writer, payload);
    RemotingReader back(writer.GetData(), writer.GetSize());
    std::vector<Variant> received;
    TulVariantSerializer::ReadPayload(back, received);
    EXPECT_EQ(received.size(), Bound);
}
