#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/Logging/LogLevel.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

namespace Kiv::System::Commons::Logging
{
class LogManager;

/// One named logger of the process, made by LogManager::CreateLogAdapter and shared by everyone who asks
/// for the same name. It filters by its numeric level and hands what passes to spdlog. All members are
/// thread-safe, and no member throws.
class KIV_API LogAdapter
{
public:
    LogAdapter(const LogAdapter&) = delete;
    LogAdapter& operator=(const LogAdapter&) = delete;
    ~LogAdapter();

    const String& GetName() const noexcept { return name; }

    /// The level set by SetLogLevel, or the process-wide default (LogManager::GetDefaultLogLevel) while
    /// none was set on this adapter.
    LogLevel GetLogLevel() const noexcept;
    void SetLogLevel(LogLevel level) noexcept;
    /// Makes the adapter follow the process-wide default again.
    void ResetLogLevel() noexcept;

    /// True when a message of `level` would be produced.
    bool IsEnabled(LogLevel level) const noexcept { return GetLogLevel().Passes(level); }

    /// Produces `text` as it stands when `level` passes GetLogLevel(); otherwise does nothing.
    void Log(LogLevel level, const char* text) noexcept;
    void Log(LogLevel level, const std::string& text) noexcept;
    void Log(LogLevel level, const char* text, std::size_t length) noexcept;

private:
    friend class LogManager;
    struct Impl;

    LogAdapter(String name, std::unique_ptr<Impl> impl);

    static constexpr int FollowDefault = -1;

    String name;
    std::atomic<int> level{FollowDefault};
    std::unique_ptr<Impl> impl;
};
}  // namespace Kiv::System::Commons::Logging
