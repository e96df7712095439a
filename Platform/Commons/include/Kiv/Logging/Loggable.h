#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Logging/LogLevel.h>
#include <Kiv/Logging/LoggerBase.h>
#include <Kiv/TypeNames.h>

#include <typeinfo>

namespace Kiv::System::Commons::Logging
{
/// The base that gives class T its logger, named after T: the demangled full type name with "class ",
/// "struct " and "enum " removed and "::" replaced by ".", e.g. "Kiv.System.Nm.NotificationBroker" or
/// "Kiv.Demo.Box<int>" (see DottedTypeName). A failed demangling raises Exception from the constructor.
///
/// OwnLogger true: each object has its own LoggerBase, made in its constructor.
/// OwnLogger false: all objects of T share one LoggerBase, made when the first object is constructed.
/// Either way the adapter is LogManager's adapter of that name, so levels set on it apply to all.
///
/// Reserved: has no meaning. It exists so that the platform's three-argument form
/// `Loggable<T, B, false>` compiles, and must be false; a static_assert rejects true so that nobody
/// comes to rely on a meaning it doesn't have.
template <class T, bool OwnLogger, bool Reserved = false>
class Loggable;

template <class T, bool Reserved>
class Loggable<T, true, Reserved>
{
    static_assert(!Reserved, "The third argument of Loggable has no meaning and must be false.");

protected:
    Loggable() : logger(GetLoggerName()) {}
    Loggable(const Loggable&) = default;
    Loggable& operator=(const Loggable&) = default;
    ~Loggable() = default;

    /// The logger name of T.
    static String GetLoggerName() { return DottedTypeName(typeid(T)); }

    /// This object's logger.
    LoggerBase& GetLogger() const noexcept { return logger; }

    /// See LoggerBase::Log. Never throws.
    template <class... Args>
    void Log(LogLevel level, const char* format, const Args&... args) const noexcept
    {
        logger.Log(level, format, args...);
    }

private:
    mutable LoggerBase logger;
};

template <class T, bool Reserved>
class Loggable<T, false, Reserved>
{
    static_assert(!Reserved, "The third argument of Loggable has no meaning and must be false.");

protected:
    Loggable() { SharedLogger(); }
    Loggable(const Loggable&) = default;
    Loggable& operator=(const Loggable&) = default;
    ~Loggable() = default;

    /// The logger name of T.
    static String GetLoggerName() { return DottedTypeName(typeid(T)); }

    /// The logger of the class, shared by all its objects.
    LoggerBase& GetLogger() const noexcept { return SharedLogger(); }

    /// See LoggerBase::Log. Never throws.
    template <class... Args>
    void Log(LogLevel level, const char* format, const Args&... args) const noexcept
    {
        SharedLogger().Log(level, format, args...);
    }

private:
    static LoggerBase& SharedLogger()
    {
        // Made on first use, which is the first constructor; thread-safe by the language's rules.
        static LoggerBase logger(GetLoggerName());
        return logger;
    }
};
}  // namespace Kiv::System::Commons::Logging
