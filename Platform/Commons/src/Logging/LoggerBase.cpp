#include <Kiv/Exceptions.h>
#include <Kiv/Logging/LogManager.h>
#include <Kiv/Logging/LoggerBase.h>

namespace Kiv::System::Commons::Logging
{
LoggerBase::LoggerBase(const String& name) : adapter(LogManager::CreateLogAdapter(name)) {}

LoggerBase::LoggerBase(std::shared_ptr<LogAdapter> logAdapter) : adapter(std::move(logAdapter))
{
    if (adapter == nullptr)
    {
        throw ArgumentException::Create("adapter", "null", "LoggerBase needs a LogAdapter");
    }
}

void LoggerBase::LogFormatFailure(LogLevel level, const char* format, const char* reason) const noexcept
{
    try
    {
        String text(FormatFailurePrefix);
        text += reason != nullptr ? reason : "Unknown exception";
        adapter->Log(LogLevel::Error, text);
        adapter->Log(level, format);
    }
    catch (...)
    {
        // Out of memory while reporting: nothing more can be done without risking the caller.
    }
}
}  // namespace Kiv::System::Commons::Logging
