#pragma once

// The reads that an input of RemotingReaderFuzzer names, one byte each; the seed writer names them too.

#include <cstdint>

namespace KivFuzz::Reads
{
enum Operation : std::uint8_t
{
    Tag,
    ObjectType,
    Data,
    ArrayLength,
    DateTime,
    String,
    BeginStruct,
    FieldCount,
    ArrayInformation,
    Confirmation,
    FailureReport,
    OperationCount
};
}  // namespace KivFuzz::Reads
