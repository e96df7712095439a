#include <Kiv/System/Tul/TulServerContext.h>

namespace Kiv::System::Tul
{
TulServerContext::TulServerContext(RemotingReader& reader, RemotingWriter& writer) noexcept
    : reader(reader), writer(writer)
{
}

void TulServerContext::AbortRequest(TulErrors error, const char* message)
{
    AbortRequest(static_cast<std::uint32_t>(error), message);
}

void TulServerContext::AbortRequest(std::uint32_t error, const char* message)
{
    aborted = true;
    abortError = error;
    abortMessage = message != nullptr ? message : "";
}

String TulServerContext::GetAbortText() const
{
    String text(fmt::format("Remote call refused with error {:#010x}", abortError));
    if (!abortMessage.empty())
    {
        text += ": " + abortMessage;
    }
    return text;
}
}  // namespace Kiv::System::Tul
