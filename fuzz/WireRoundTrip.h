#pragma once

// What the record fuzzers share: a record read from hostile bytes as a service reads it, and the round
// trip that a record that was read must survive.

#include "FuzzCheck.h"

#include <Nm/Services/Wire.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <cstdint>
#include <optional>

namespace KivFuzz
{
/// The record read from `data`, or nothing when the message was refused with one of the exceptions a
/// refusal may raise: the reader's CommunicationException, or the record's NotSupportedException or
/// NotImplementedException. Anything else escapes and is a finding.
template <class Record>
std::optional<Record> ReadRecord(const std::uint8_t* data, std::size_t size)
{
    Kiv::System::Tul::RemotingReader reader(size == 0 ? nullptr : data, size);
    Record record;
    try
    {
        Kiv::System::Nm::Services::Wire::Read(reader, record);
    }
    catch (const Kiv::CommunicationException&)
    {
        return std::nullopt;
    }
    catch (const Kiv::NotSupportedException&)
    {
        return std::nullopt;
    }
    catch (const Kiv::NotImplementedException&)
    {
        return std::nullopt;
    }
    return record;
}

/// Writes `record`, reads it back and writes the copy: the copy must use all the bytes, and write the
/// same ones. Returns the copy for the caller's own comparisons.
template <class Record>
Record WriteAndReadBack(const Record& record)
{
    namespace Wire = Kiv::System::Nm::Services::Wire;
    Kiv::System::Tul::RemotingWriter first;
    Wire::Write(first, record);
    Kiv::System::Tul::RemotingReader again(first.GetData(), first.GetSize());
    Record copy;
    Wire::Read(again, copy);
    KIV_FUZZ_CHECK(again.IsAtEnd());
    Kiv::System::Tul::RemotingWriter second;
    Wire::Write(second, copy);
    KIV_FUZZ_CHECK(first.GetBuffer() == second.GetBuffer());
    return copy;
}
}  // namespace KivFuzz
