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
    // A million one-byte Void elements announced, the second one broken: the reader must fail there
    // without having reserved half a gigabyte of variants first.
    constexpr std::uint32_t Announced = 1000000;
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
