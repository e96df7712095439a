#pragma once

// A message that uses every write call, and a copy that reads it call for call and writes what it read:
// the copy's bytes equal the original's only if every read gave back its value.

#include <Kiv/System/Tul/TulGuid.h>
#include <Kiv/System/Tul/TulReader.h>
#include <Kiv/System/Tul/TulVersion.h>
#include <Kiv/System/Tul/TulWriter.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Sample
{
using namespace Kiv::System::Tul;
constexpr auto utf8 = TulStringEncoding::Utf8;

inline void Write(TulWriter& w)
{
    const std::uint64_t id = 0x1122334455667788;
    const std::int32_t number = -7;
    w.WriteBeginStruct(6);
    w.WriteTag(TulType::UInt64);
    w.WriteDataInternal(&id, 8);
    w.WriteTag(TulType::DateTime);
    w.WriteDateTime(Kiv::DateTime(638000000000000000, Kiv::DateTimeKind::Utc));
    w.WriteStringInternal(std::string(511, 'x').c_str(), 512, utf8, true);  // the longest that fits
    w.WriteTag(TulType::Array);
    w.WriteTag(TulType::Object);
    w.WriteArrayLength(5);
    w.WriteObjectType(TulType::Int32);
    w.WriteDataInternal(&number, 4);
    w.WriteObjectString("hello", utf8);
    w.WriteObjectType(TulType::String36);
    w.WriteStringInternal("", 512, utf8, false);
    w.WriteBeginStruct(2);
    w.WriteArrayInformation({28, 1, 3, 0});
    TulVersion{1, 2, 3, 4}.Write(w);
    TulGuid{{0xA0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xFF}}.Write(w);
    w.WriteConfirmation(false);
    w.WriteConfirmation(true);
}

inline void Copy(TulReader& r, TulWriter& w)
{
    std::uint8_t data[16];
    char text[512];
    r.ReadBeginStruct(6);
    w.WriteBeginStruct(6);
    auto copyData = [&](std::size_t size)
    {
        r.ReadDataInternal(data, size);
        w.WriteDataInternal(data, size);
    };
    r.ReadTag(TulType::UInt64);
    w.WriteTag(TulType::UInt64);
    copyData(8);
    r.ReadTag(TulType::DateTime);
    w.WriteTag(TulType::DateTime);
    w.WriteDateTime(r.ReadDateTime());
    r.ReadStringInternal(text, sizeof text, utf8, true);
    w.WriteStringInternal(text, sizeof text, utf8, true);
    r.ReadTag(TulType::Array);
    r.ReadTag(TulType::Object);
    const std::uint32_t count = r.ReadArrayLength();
    w.WriteTag(TulType::Array);
    w.WriteTag(TulType::Object);
    w.WriteArrayLength(count);
    for (std::uint32_t i = 0; i < count; ++i)
    {
        const TulType type = r.ReadObjectType();
        if (type == TulType::Struct)
        {
            w.WriteBeginStruct(r.ReadFieldCount());
            continue;
        }
        if (type == TulType::Array)
        {
            w.WriteArrayInformation(r.ReadArrayInformation());
            continue;
        }
        w.WriteObjectType(type);
        if (type == TulType::String || type == TulType::String36)
        {
            r.ReadStringInternal(text, sizeof text, utf8, false);
            w.WriteStringInternal(text, sizeof text, utf8, false);
        }
        else
        {
            copyData(4);
        }
    }
    copyData(8);   // the version's four parts
    copyData(16);  // the guid
    w.WriteConfirmation(r.ReadConfirmation());
    w.WriteConfirmation(r.ReadConfirmation());
}
}  // namespace Sample
