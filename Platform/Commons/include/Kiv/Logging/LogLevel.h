#pragma once

namespace Kiv::System::Commons::Logging
{
/// A numeric log level. A message is produced when its level is numerically at or below the level of
/// the adapter it goes to, so a higher number means more detail. Any int converts to a LogLevel, so
/// `Log(3, ...)` and `Log(LogLevel::Error, ...)` say the same.
///
/// Levels map to spdlog's as: 1 and below critical, 2-3 error, 4-5 warning, 6-7 info, 8-9 debug,
/// 10 and above trace. An adapter at level 0 (Off) produces nothing of level 1 or above.
class LogLevel
{
public:
    enum Level : int
    {
        Off = 0,
        Fatal = 1,
        Error = 3,
        Warning = 5,
        Info = 7,
        Debug = 9,
        Trace = 10
    };

    /// The level of a new adapter while LogManager::SetDefaultLogLevel was not called.
    static constexpr int DefaultValue = Info;

    constexpr LogLevel(int value) noexcept
        : value(value) {}  // NOLINT(google-explicit-constructor): numeric levels
    constexpr operator int() const noexcept { return value; }  // NOLINT(google-explicit-constructor)
    constexpr int GetValue() const noexcept { return value; }

    /// True when a message of level `message` is produced at this level.
    constexpr bool Passes(LogLevel message) const noexcept { return message.value <= value; }

private:
    int value;
};
}  // namespace Kiv::System::Commons::Logging
