#pragma once

// A message that uses every write call, and the reading of it, shared by the round-trip and the
// hostile-input tests.

#include <Kiv/System/Tul/TulGuid.h>
#include <Kiv/System/Tul/TulReader.h>
#include <Kiv/System/Tul/TulVersion.h>
#include <Kiv/System/Tul/TulWriter.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Sample
{
using namespace Kiv::System::Tul;

struct Values
{
    std::uint32_t fieldCount = 0;
    std::uint64_t id = 0;
    std::uint32_t nameId = 0;
    Kiv::DateTime timestamp;
    std::uint8_t severity = 0;
    std::uint16_t payloadType = 0;
    std::string serviceText;
    std::vector<TulType> elementTypes;
    std::int32_t int32Element = 0;
    std::vector<std::string> stringElements;
    std::uint32_t structElementFields = 0;
    TulArrayInformation arrayElement;
    std::array<std::uint16_t, 4> version{};
    TulGuid guid;
    bool confirmations[2] = {true, false};

    bool operator==(const Values& o) const
    {
        return fieldCount == o.fieldCount && id == o.id && nameId == o.nameId && timestamp == o.timestamp &&
               severity == o.severity && payloadType == o.payloadType && serviceText == o.serviceText &&
               elementTypes == o.elementTypes && int32Element == o.int32Element &&
               stringElements == o.stringElements && structElementFields == o.structElementFields &&
               arrayElement == o.arrayElement && version == o.version && guid == o.guid &&
               confirmations[0] == o.confirmations[0] && confirmations[1] == o.confirmations[1];
    }
};

inline Values Expected()
{
    Values v;
    v.fieldCount = 6;
    v.id = 0x1122334455667788;
    v.nameId = 42;
    v.timestamp = Kiv::DateTime(638000000000000000, Kiv::DateTimeKind::Utc);
    v.severity = 3;
    v.payloadType = 0xBEEF;
    v.serviceText = "Kiv.System.Nm";
    v.elementTypes = {TulType::Int32,  TulType::String, TulType::String36,
                      TulType::Struct, TulType::Array,  TulType::Void};
    v.int32Element = -7;
    v.stringElements = {"hello", ""};
    v.structElementFields = 2;
    v.arrayElement = {28, 1, 3, 0};
    v.version = {1, 2, 3, 4};
    for (std::uint8_t i = 0; i < 16; ++i)
    {
        v.guid.bytes[i] = static_cast<std::uint8_t>(0xA0 + i);
    }
    v.confirmations[0] = false;
    v.confirmations[1] = true;
    return v;
}

inline void Write(TulWriter& w, const Values& v)
{
    w.WriteBeginStruct(v.fieldCount);
    w.WriteTag(TulType::UInt64);
    w.WriteDataInternal(&v.id, 8);
    w.WriteTag(TulType::UInt32);
    w.WriteDataInternal(&v.nameId, 4);
    w.WriteTag(TulType::DateTime);
    w.WriteDateTime(v.timestamp);
    w.WriteTag(TulType::UInt8);
    w.WriteDataInternal(&v.severity, 1);
    w.WriteTag(TulType::UInt16);
    w.WriteDataInternal(&v.payloadType, 2);
    w.WriteStringInternal(v.serviceText.c_str(), 512, TulStringEncoding::Utf8, true);
    w.WriteTag(TulType::Array);
    w.WriteTag(TulType::Object);
    w.WriteArrayLength(static_cast<std::uint32_t>(v.elementTypes.size()));
    w.WriteObjectType(TulType::Int32);
    w.WriteDataInternal(&v.int32Element, 4);
    w.WriteObjectString(v.stringElements[0].c_str(), TulStringEncoding::Utf8);
    w.WriteObjectType(TulType::String36);
    w.WriteStringInternal(v.stringElements[1].c_str(), 512, TulStringEncoding::Utf8, false);
    w.WriteBeginStruct(v.structElementFields);
    w.WriteArrayInformation(v.arrayElement);
    w.WriteObjectType(TulType::Void);
    TulVersion{v.version[0], v.version[1], v.version[2], v.version[3]}.Write(w);
    v.guid.Write(w);
    w.WriteConfirmation(v.confirmations[0]);
    w.WriteConfirmation(v.confirmations[1]);
}

inline Values Read(TulReader& r)
{
    Values v;
    r.ReadBeginStruct(6);
    v.fieldCount = 6;
    r.ReadTag(TulType::UInt64);
    r.ReadDataInternal(&v.id, 8);
    r.ReadTag(TulType::UInt32);
    r.ReadDataInternal(&v.nameId, 4);
    r.ReadTag(TulType::DateTime);
    v.timestamp = r.ReadDateTime();
    r.ReadTag(TulType::UInt8);
    r.ReadDataInternal(&v.severity, 1);
    r.ReadTag(TulType::UInt16);
    r.ReadDataInternal(&v.payloadType, 2);
    char text[512];
    r.ReadStringInternal(text, sizeof text, TulStringEncoding::Utf8, true);
    v.serviceText = text;
    r.ReadTag(TulType::Array);
    r.ReadTag(TulType::Object);
    const std::uint32_t count = r.ReadArrayLength();
    for (std::uint32_t i = 0; i < count; ++i)
    {
        const TulType type = r.ReadObjectType();
        v.elementTypes.push_back(type);
        switch (type)
        {
            case TulType::Int32:
                r.ReadDataInternal(&v.int32Element, 4);
                break;
            case TulType::String:
            case TulType::String36:
                r.ReadStringInternal(text, sizeof text, TulStringEncoding::Utf8, false);
                v.stringElements.push_back(text);
                break;
            case TulType::Struct:
                v.structElementFields = r.ReadFieldCount();
                break;
            case TulType::Array:
                v.arrayElement = r.ReadArrayInformation();
                break;
            default:
                break;
        }
    }
    for (auto& part : v.version)
    {
        r.ReadDataInternal(&part, 2);
    }
    r.ReadDataInternal(v.guid.bytes.data(), 16);
    v.confirmations[0] = r.ReadConfirmation();
    v.confirmations[1] = r.ReadConfirmation();
    return v;
}
}  // namespace Sample
