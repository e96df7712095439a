#include "LoggingInternal.h"

#include <Kiv/Logging/LogManager.h>

#include <cstring>

namespace Kiv::System::Commons::Logging
{
LogAdapter::LogAdapter(String name, std::unique_ptr<Impl> impl) : name(std::move(name)), impl(std::move(impl))
{
}

LogAdapter::~LogAdapter() = default;

LogLevel LogAdapter::GetLogLevel() const noexcept
{
    const int own = level.load(std::memory_order_relaxed);
    return own == FollowDefault ? LogManager::GetDefaultLogLevel() : LogLevel(own);
}

void LogAdapter::SetLogLevel(LogLevel newLevel) noexcept
{
    // A negative level produces nothing, as 0 does; keep the sentinel free.
    level.store(newLevel.GetValue() < 0 ? 0 : newLevel.GetValue(), std::memory_order_relaxed);
}

void LogAdapter::ResetLogLevel() noexcept
{
    level.store(FollowDefault, std::memory_order_relaxed);
}

void LogAdapter::Log(LogLevel messageLevel, const char* text) noexcept
{
    Log(messageLevel, text, text != nullptr ? std::strlen(text) : 0);
}

void LogAdapter::Log(LogLevel messageLevel, const std::string& text) noexcept
{
    Log(messageLevel, text.data(), text.size());
}

void LogAdapter::Log(LogLevel messageLevel, const char* text, std::size_t length) noexcept
{
    if (!IsEnabled(messageLevel))
    {
        return;
    }
    try
    {
        impl->logger->log(Internal::ToSpdlogLevel(messageLevel),
                          spdlog::string_view_t(text != nullptr ? text : "", text != nullptr ? length : 0));
    }
    catch (...)
    {
        // Logging must not fail its caller; spdlog reports its own sink errors.
    }
}
}  // namespace Kiv::System::Commons::Logging
