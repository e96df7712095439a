#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <exception>
#include <memory>

namespace Kiv
{
/// The base of the platform's exception family. The message is a format string filled when the exception
/// is made; a message without arguments is taken as it stands.
class KIV_API Exception : public std::exception
{
public:
    /// Marks a constructor argument as finished text that must not be formatted again.
    struct Verbatim
    {
    };

    Exception() = default;

    explicit Exception(const char* message) : message(message != nullptr ? message : "") {}
    explicit Exception(const String& message) : message(message) {}
    Exception(Verbatim, String message) : message(std::move(message)) {}

    template <class Arg, class... Args>
    Exception(const char* format, const Arg& arg, const Args&... args) : message(String::Format(format, arg, args...))
    {
    }

    Exception(const Exception&) = default;
    Exception(Exception&&) noexcept = default;
    Exception& operator=(const Exception&) = default;
    Exception& operator=(Exception&&) noexcept = default;
    ~Exception() override;

    const char* what() const noexcept override { return message.c_str(); }
    const String& GetMessage() const noexcept { return message; }

    /// Attaches a copy of `inner`, keeping its dynamic type. Returns *this for chaining at a throw.
    Exception& SetInnerException(const Exception& inner);
    const Exception* GetInnerException() const noexcept { return inner.get(); }

    /// Readable name of the dynamic type, e.g. "Kiv::ArgumentException".
    String GetTypeName() const;

    /// Indent, "{message} ({type})", then each inner exception one level deeper.
    String Format(int indentLevel, bool withInner) const;
    String ToString() const { return Format(0, true); }

    /// A heap copy with the same dynamic type.
    virtual std::unique_ptr<Exception> Clone() const { return std::make_unique<Exception>(*this); }
    /// Throws a copy with the same dynamic type.
    [[noreturn]] virtual void Rethrow() const { throw *this; }

protected:
    void SetMessage(String text) { message = std::move(text); }

private:
    String message;
    std::shared_ptr<const Exception> inner;
};
}  // namespace Kiv

/// Declares the constructors and the copy hooks of one class of the family.
#define KIV_EXCEPTION_MEMBERS(Name, Base)                                                         \
public:                                                                                           \
    using Base::Base;                                                                             \
    Name() = default;                                                                             \
    std::unique_ptr<::Kiv::Exception> Clone() const override { return std::make_unique<Name>(*this); } \
    [[noreturn]] void Rethrow() const override { throw *this; }
