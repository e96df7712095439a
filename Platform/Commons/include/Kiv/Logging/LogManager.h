#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/Logging/LogAdapter.h>
#include <Kiv/Logging/LogLevel.h>

#include <memory>

namespace Kiv::System::Commons::Logging
{
/// The process's logging: the table of adapters by name, the default level and the destination of all
/// log lines. Every logger writes to one destination, the main sink, which is the console (stderr) until
/// the hosting process chooses a file or the system log; the choice applies at once to every adapter,
/// also to those made before. All members are thread-safe.
class KIV_API LogManager
{
public:
    LogManager() = delete;

    /// The adapter of `name`, made on first request; the same name always gives the same adapter.
    static std::shared_ptr<LogAdapter> CreateLogAdapter(const String& name);
    /// The adapter of `name` if it was made already, else null; makes none.
    static std::shared_ptr<LogAdapter> FindLogAdapter(const String& name);

    /// The level of every adapter on which SetLogLevel was not called, now and later. Starts at 7 (Info).
    static void SetDefaultLogLevel(LogLevel level) noexcept;
    static LogLevel GetDefaultLogLevel() noexcept;

    /// Lines go to stderr, coloured when it is a terminal, as "[time] [logger] [level] text". The default.
    static void UseConsoleSink();
    /// Lines go to the file at `path`, appended (or the file is emptied first when `truncate`), flushed
    /// line by line; missing parent directories are made. Raises Exception when the file cannot be
    /// opened; the previous sink then stays.
    static void UseFileSink(const String& path, bool truncate = false);
    /// Lines go to syslog(3) under `ident`, with facility LOG_USER, as "[logger] text".
    static void UseSyslogSink(const String& ident);
    /// Lines go nowhere (attached CapturingSinks still see them).
    static void UseNullSink();
};
}  // namespace Kiv::System::Commons::Logging
