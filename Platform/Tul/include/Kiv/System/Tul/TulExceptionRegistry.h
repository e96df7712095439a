#pragma once

#include <Kiv/Exception.h>
#include <Kiv/Export.h>
#include <Kiv/TypeNames.h>

#include <exception>
#include <memory>
#include <typeinfo>

namespace Kiv::System::Tul
{
class TulReader;
class TulWriter;

/// Carries exceptions across a remote call. The server writes the failure of an operation as its chain
/// of (readable type name, message) pairs, outermost first; the caller rebuilds each level by the
/// factory registered for its name and throws the result. The Commons family is registered; a library
/// registers its own classes once, before calls can bring them. An unknown name arrives as
/// Kiv::Exception with the message.
class KIV_API TulExceptionRegistry
{
public:
    using Factory = std::unique_ptr<Exception> (*)(const String& message);

    /// Registers `factory` for the exceptions whose GetTypeName() is `typeName`; replaces an earlier one.
    static void Register(const String& typeName, Factory factory);

    /// Registers `E`, which must have the family's constructor from Exception::Verbatim and a message.
    template <class E>
    static void Register()
    {
        Register(Commons::ReadableTypeName(typeid(E)), &Make<E>);
    }

    /// A new exception of the class registered as `typeName`, or Kiv::Exception.
    static std::unique_ptr<Exception> Create(const String& typeName, const String& message);

    /// Writes `error`: a Kiv::Exception with its class, message and inner exceptions (at most 32 levels);
    /// any other std::exception as Kiv::Exception with its what() text; anything else as Kiv::Exception
    /// "Unknown exception in a remote operation".
    static void Write(TulWriter& writer, std::exception_ptr error);

    /// Reads what Write wrote and throws it rebuilt. A malformed report raises CommunicationException.
    [[noreturn]] static void Throw(TulReader& reader);

    /// The most levels of a chain that are carried.
    static constexpr std::uint32_t MaxLevels = 32;

private:
    template <class E>
    static std::unique_ptr<Exception> Make(const String& message)
    {
        return std::make_unique<E>(Exception::Verbatim{}, message);
    }
};
}  // namespace Kiv::System::Tul
