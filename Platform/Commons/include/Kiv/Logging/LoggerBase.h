#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Exception.h>
#include <Kiv/Export.h>
#include <Kiv/Logging/LogAdapter.h>
#include <Kiv/Logging/LogLevel.h>

#include <fmt/format.h>

#include <exception>
#include <iterator>
#include <memory>

namespace Kiv::System::Commons::Logging
{
/// A handle on one LogAdapter with the formatted log call. Copies share the adapter.
class KIV_API LoggerBase
{
public:
    /// The inline capacity of the buffer a message is formatted into; longer text goes to the heap.
    static constexpr std::size_t InlineBufferSize = 500;

    /// Uses LogManager::CreateLogAdapter(name).
    explicit LoggerBase(const String& name);
    /// Uses `adapter`, which must not be null.
    explicit LoggerBase(std::shared_ptr<LogAdapter> adapter);

    LogAdapter& GetLogAdapter() const noexcept { return *adapter; }
    const String& GetName() const noexcept { return adapter->GetName(); }
    LogLevel GetLogLevel() const noexcept { return adapter->GetLogLevel(); }
    void SetLogLevel(LogLevel level) noexcept { adapter->SetLogLevel(level); }
    bool IsEnabled(LogLevel level) const noexcept { return adapter->IsEnabled(level); }

    /// Logs `format` filled with `args` (fmt's "{}" and "{0}" placeholders) at `level`. Nothing is
    /// formatted unless the level passes. Without arguments the text is taken as it stands, as
    /// Exception does with its message. If formatting raises, "Exception occurs during format of log
    /// message: " and the reason (Exception::GetMessage(), what(), or "Unknown exception") goes out at
    /// level 3, and then the raw format string at `level`. Never throws.
    template <class... Args>
    void Log(LogLevel level, const char* format, const Args&... args) const noexcept
    {
        if (format == nullptr)
        {
            format = "";
        }
        if (!adapter->IsEnabled(level))
        {
            return;
        }
        if constexpr (sizeof...(Args) == 0)
        {
            adapter->Log(level, format);
        }
        else
        {
            try
            {
                fmt::basic_memory_buffer<char, InlineBufferSize> buffer;
                fmt::format_to(std::back_inserter(buffer), fmt::runtime(format), args...);
                adapter->Log(level, buffer.data(), buffer.size());
            }
            catch (const Exception& e)
            {
                LogFormatFailure(level, format, e.GetMessage().c_str());
            }
            catch (const std::exception& e)
            {
                LogFormatFailure(level, format, e.what());
            }
            catch (...)
            {
                LogFormatFailure(level, format, nullptr);
            }
        }
    }

    /// The first line of a format failure; `reason` null stands for an exception of unknown type.
    static constexpr const char* FormatFailurePrefix = "Exception occurs during format of log message: ";

private:
    void LogFormatFailure(LogLevel level, const char* format, const char* reason) const noexcept;

    std::shared_ptr<LogAdapter> adapter;
};
}  // namespace Kiv::System::Commons::Logging
