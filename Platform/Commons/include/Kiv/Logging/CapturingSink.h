#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/Logging/LogLevel.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace Kiv::System::Commons::Logging
{
/// One captured log line.
struct LogRecord
{
    String loggerName;
    /// The level the line went out with, as spdlog knows it, read back as 1, 3, 5, 7, 9 or 10 (trace).
    /// For the odd levels 1 to 9 this is the level given to Log.
    LogLevel level = LogLevel::Off;
    String text;
};

/// A test aid: while it exists, it receives every line that any adapter of the process produces, next
/// to the main sink. Thread-safe.
class KIV_API CapturingSink
{
public:
    /// Attaches itself to the process's logging.
    CapturingSink();
    CapturingSink(const CapturingSink&) = delete;
    CapturingSink& operator=(const CapturingSink&) = delete;
    /// Detaches itself.
    ~CapturingSink();

    /// All lines captured so far, in order.
    std::vector<LogRecord> GetRecords() const;
    /// The lines of one logger, in order.
    std::vector<LogRecord> GetRecords(const String& loggerName) const;
    void Clear();

    struct Impl;

private:
    std::shared_ptr<Impl> impl;
};
}  // namespace Kiv::System::Commons::Logging
