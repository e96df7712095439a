#pragma once

// Shared between the logging sources of the library; not a public header.

#include <Kiv/Logging/LogAdapter.h>
#include <Kiv/Logging/LogLevel.h>

#include <spdlog/common.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/sink.h>

#include <memory>

namespace Kiv::System::Commons::Logging
{
struct LogAdapter::Impl
{
    std::shared_ptr<spdlog::logger> logger;
};

namespace Internal
{
/// Our numeric level as spdlog's: 1- critical, 2-3 err, 4-5 warn, 6-7 info, 8-9 debug, 10+ trace.
spdlog::level::level_enum ToSpdlogLevel(LogLevel level) noexcept;
/// spdlog's level as ours: the odd level at the top of its range (10 for trace).
LogLevel FromSpdlogLevel(spdlog::level::level_enum level) noexcept;

/// Adds a sink that sees every line next to the main sink; removes it again.
void AddSink(const std::shared_ptr<spdlog::sinks::sink>& sink);
void RemoveSink(const std::shared_ptr<spdlog::sinks::sink>& sink);
}  // namespace Internal
}  // namespace Kiv::System::Commons::Logging
