#pragma once

// The platform's exception family beyond the base.

#include <Kiv/Exception.h>

#include <sstream>

namespace Kiv
{
/// A caller's mistake in one argument. Knows the argument's name.
class KIV_API ArgumentException : public Exception
{
    KIV_EXCEPTION_MEMBERS(ArgumentException, Exception)

    /// "<text> (argument '<argumentName>', value '<value>')": neither text nor value is read as a format
    /// string, since both may carry user data.
    template <class T>
    static ArgumentException Create(const String& argumentName, const T& value, const String& text)
    {
        ArgumentException e(Verbatim{}, ComposeMessage(text, argumentName, value));
        e.argumentName = argumentName;
        return e;
    }

    const String& GetArgumentName() const noexcept { return argumentName; }

protected:
    template <class T>
    static String ComposeMessage(const String& text, const String& argumentName, const T& value)
    {
        std::ostringstream out;
        out << text << " (argument '" << argumentName << "', value '" << value << "')";
        return String(out.str());
    }

    void SetArgumentName(const String& name) { argumentName = name; }

private:
    String argumentName;
};

class KIV_API ArgumentOutOfRangeException : public ArgumentException
{
    KIV_EXCEPTION_MEMBERS(ArgumentOutOfRangeException, ArgumentException)

    static constexpr const char* DefaultText = "Specified argument was out of the range of valid values.";

    /// The default message for `argumentName` holding `value`.
    template <class T>
    static ArgumentOutOfRangeException Create(const String& argumentName, const T& value)
    {
        return Create(argumentName, value, DefaultText);
    }

    template <class T>
    static ArgumentOutOfRangeException Create(const String& argumentName, const T& value, const String& text)
    {
        ArgumentOutOfRangeException e(Verbatim{}, ComposeMessage(text, argumentName, value));
        e.SetArgumentName(argumentName);
        return e;
    }
};

class KIV_API InvalidOperationException : public Exception
{
    KIV_EXCEPTION_MEMBERS(InvalidOperationException, Exception)
};

class KIV_API InvalidCastException : public Exception
{
    KIV_EXCEPTION_MEMBERS(InvalidCastException, Exception)
};

class KIV_API NotSupportedException : public Exception
{
    KIV_EXCEPTION_MEMBERS(NotSupportedException, Exception)
};

class KIV_API NotImplementedException : public Exception
{
    KIV_EXCEPTION_MEMBERS(NotImplementedException, Exception)
};

/// The caller is not granted the operation it asked for.
class KIV_API UnauthorizedAccessException : public Exception
{
    KIV_EXCEPTION_MEMBERS(UnauthorizedAccessException, Exception)
};

/// A remote call could not be carried out: no connection, a lost peer, a refused request.
class KIV_API CommunicationException : public Exception
{
    KIV_EXCEPTION_MEMBERS(CommunicationException, Exception)
};

/// A settings file could not be read. Messages built at a reader position carry file and line.
class KIV_API XmlException : public Exception
{
    KIV_EXCEPTION_MEMBERS(XmlException, Exception)

    /// The decoration of a message with its place: "{file}({line}): {message}".
    static constexpr const char* fileLineMessage = "{0}({1}): {2}";

    /// `message` with file and line in front, by fileLineMessage.
    static XmlException AtLine(const String& file, int line, const String& message)
    {
        return XmlException(Verbatim{}, String::Format(fileLineMessage, file, line, message));
    }
};
}  // namespace Kiv
