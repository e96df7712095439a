#include "LoggingInternal.h"

#include <Kiv/Exception.h>
#include <Kiv/Logging/LogManager.h>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/dist_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

#include <syslog.h>
#include <algorithm>
#include <atomic>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace Kiv::System::Commons::Logging
{
namespace
{
// Every spdlog logger of ours writes to `distribution`, whose children are the main sink and the added
// sinks; swapping a child reaches all loggers at once. The loggers stay out of spdlog's registry, so
// that another spdlog user in the process cannot collide with our names.
struct State
{
    std::mutex mutex;
    std::unordered_map<String, std::shared_ptr<LogAdapter>> adapters;
    std::shared_ptr<spdlog::sinks::dist_sink_mt> distribution =
        std::make_shared<spdlog::sinks::dist_sink_mt>();
    std::shared_ptr<spdlog::sinks::sink> mainSink;
    std::vector<std::shared_ptr<spdlog::sinks::sink>> extraSinks;
    std::atomic<int> defaultLevel{LogLevel::DefaultValue};

    State()
    {
        mainSink = std::make_shared<spdlog::sinks::stderr_color_sink_mt>();
        distribution->set_sinks({mainSink});
    }

    // Call with `mutex` held.
    void Rewire()
    {
        std::vector<std::shared_ptr<spdlog::sinks::sink>> sinks{mainSink};
        sinks.insert(sinks.end(), extraSinks.begin(), extraSinks.end());
        distribution->set_sinks(std::move(sinks));
    }
};

// Made once and never destroyed: objects that log from static destructors still find it.
State& GetState()
{
    static State* state = new State();
    return *state;
}

void SetMainSink(std::shared_ptr<spdlog::sinks::sink> sink)
{
    State& state = GetState();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.mainSink = std::move(sink);
    state.Rewire();
}
}  // namespace

namespace Internal
{
spdlog::level::level_enum ToSpdlogLevel(LogLevel level) noexcept
{
    const int value = level.GetValue();
    if (value <= 1)
    {
        return spdlog::level::critical;
    }
    if (value <= 3)
    {
        return spdlog::level::err;
    }
    if (value <= 5)
    {
        return spdlog::level::warn;
    }
    if (value <= 7)
    {
        return spdlog::level::info;
    }
    if (value <= 9)
    {
        return spdlog::level::debug;
    }
    return spdlog::level::trace;
}

LogLevel FromSpdlogLevel(spdlog::level::level_enum level) noexcept
{
    switch (level)
    {
        case spdlog::level::critical:
            return LogLevel::Fatal;
        case spdlog::level::err:
            return LogLevel::Error;
        case spdlog::level::warn:
            return LogLevel::Warning;
        case spdlog::level::info:
            return LogLevel::Info;
        case spdlog::level::debug:
            return LogLevel::Debug;
        case spdlog::level::trace:
            return LogLevel::Trace;
        default:
            return LogLevel::Off;
    }
}

void AddSink(const std::shared_ptr<spdlog::sinks::sink>& sink)
{
    State& state = GetState();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.extraSinks.push_back(sink);
    state.Rewire();
}

void RemoveSink(const std::shared_ptr<spdlog::sinks::sink>& sink)
{
    State& state = GetState();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.extraSinks.erase(std::remove(state.extraSinks.begin(), state.extraSinks.end(), sink),
                           state.extraSinks.end());
    state.Rewire();
}
}  // namespace Internal

std::shared_ptr<LogAdapter> LogManager::CreateLogAdapter(const String& name)
{
    State& state = GetState();
    std::lock_guard<std::mutex> lock(state.mutex);
    auto found = state.adapters.find(name);
    if (found != state.adapters.end())
    {
        return found->second;
    }
    auto impl = std::make_unique<LogAdapter::Impl>();
    impl->logger = std::make_shared<spdlog::logger>(name, state.distribution);
    // Filtering is ours, by numeric level; spdlog passes everything it is given.
    impl->logger->set_level(spdlog::level::trace);
    impl->logger->flush_on(spdlog::level::trace);
    std::shared_ptr<LogAdapter> adapter(new LogAdapter(name, std::move(impl)));
    state.adapters.emplace(name, adapter);
    return adapter;
}

std::shared_ptr<LogAdapter> LogManager::FindLogAdapter(const String& name)
{
    State& state = GetState();
    std::lock_guard<std::mutex> lock(state.mutex);
    auto found = state.adapters.find(name);
    return found != state.adapters.end() ? found->second : nullptr;
}

void LogManager::SetDefaultLogLevel(LogLevel level) noexcept
{
    GetState().defaultLevel.store(level.GetValue(), std::memory_order_relaxed);
}

LogLevel LogManager::GetDefaultLogLevel() noexcept
{
    return GetState().defaultLevel.load(std::memory_order_relaxed);
}

void LogManager::UseConsoleSink()
{
    SetMainSink(std::make_shared<spdlog::sinks::stderr_color_sink_mt>());
}

void LogManager::UseFileSink(const String& path, bool truncate)
{
    std::shared_ptr<spdlog::sinks::sink> sink;
    try
    {
        sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, truncate);
    }
    catch (const std::exception& e)
    {
        throw Exception("Cannot open log file '{0}': {1}", path, e.what());
    }
    SetMainSink(std::move(sink));
}

void LogManager::UseSyslogSink(const String& ident)
{
    auto sink = std::make_shared<spdlog::sinks::syslog_sink_mt>(ident, LOG_PID, LOG_USER, true);
    // syslog stamps time and level itself.
    sink->set_pattern("[%n] %v");
    SetMainSink(std::move(sink));
}

void LogManager::UseNullSink()
{
    SetMainSink(std::make_shared<spdlog::sinks::null_sink_mt>());
}
}  // namespace Kiv::System::Commons::Logging
