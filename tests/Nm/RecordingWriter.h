#pragma once

#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>
#include <Kiv/System/Tul/TulWriter.h>

#include <fmt/format.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace Kiv::Testing
{
using Kiv::System::Tul::TulType;

// Keeps each call as a line of text, so that a test can compare the exact call order of a serialiser and
// not just the bytes, in which a tag and an object type look alike.
class RecordingWriter final : public Kiv::System::Tul::TulWriter
{
public:
    using TulStringEncoding = Kiv::System::Tul::TulStringEncoding;

    std::vector<std::string> calls;

    void WriteTag(TulType tag) override { Add("Tag {}", tag); }
    void WriteObjectType(TulType type) override { Add("ObjectType {}", type); }
    void WriteDataInternal(const void* data, std::size_t size) override
    {
        std::uint64_t value = 0;
        std::memcpy(&value, data, size < sizeof value ? size : sizeof value);
        Add("Data {} {:#x}", size, value);
    }
    void WriteArrayLength(std::uint32_t length) override { Add("ArrayLength {}", length); }
    void WriteDateTime(const Kiv::DateTime& value) override { Add("DateTime {:#x}", value.GetRawValue()); }
    void WriteObjectString(const char* text, TulStringEncoding encoding) override
    {
        Add("ObjectString '{}' {}", text, static_cast<int>(encoding));
    }
    void WriteStringInternal(const char* text, std::size_t capacity, TulStringEncoding encoding,
                             bool withCode) override
    {
        Add("StringInternal '{}' {} {} {}", text, capacity, static_cast<int>(encoding), withCode);
    }
    void WriteBeginStruct(std::uint32_t fieldCount) override { Add("BeginStruct {}", fieldCount); }
    void WriteArrayInformation(const Kiv::System::Tul::TulArrayInformation& information) override
    {
        Add("ArrayInformation {} {} {} {}", information.elementType, information.rank, information.length,
            information.lowerBound);
    }
    void WriteConfirmation(bool isError) override { Add("Confirmation {}", isError); }

private:
    template <class... Args>
    void Add(const char* format, const Args&... args)
    {
        calls.push_back(fmt::format(fmt::runtime(format), args...));
    }
};
}  // namespace Kiv::Testing
