#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulErrors.h>

#include <cstdint>

namespace Kiv::System::Tul
{
class RemotingReader;
class RemotingWriter;

/// What a stub gets for one invocation: the request's arguments to read and the response to write, which
/// starts with WriteConfirmation(false). An exception that leaves the stub is carried to the caller in
/// place of the response.
class KIV_API TulServerContext
{
public:
    TulServerContext(RemotingReader& reader, RemotingWriter& writer) noexcept;
    TulServerContext(const TulServerContext&) = delete;
    TulServerContext& operator=(const TulServerContext&) = delete;

    RemotingReader& GetReader() noexcept { return reader; }
    RemotingWriter& GetWriter() noexcept { return writer; }

    /// Refuses the request: whatever the stub writes is dropped, and the caller gets a
    /// CommunicationException "Remote call refused with error 0x40000003", followed by ": " and
    /// `message` when that is not null.
    void AbortRequest(TulErrors error, const char* message);
    void AbortRequest(std::uint32_t error, const char* message);

    bool IsAborted() const noexcept { return aborted; }
    /// The exception text that the caller gets for the refusal.
    String GetAbortText() const;

private:
    RemotingReader& reader;
    RemotingWriter& writer;
    bool aborted = false;
    std::uint32_t abortError = 0;
    String abortMessage;
};
}  // namespace Kiv::System::Tul
