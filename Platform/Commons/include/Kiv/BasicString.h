#pragma once

#include <Kiv/Export.h>

#include <fmt/format.h>

#include <cstddef>
#include <functional>
#include <string>
#include <utility>

namespace Kiv
{
namespace System::Core::Impl
{
/// The default reaction to a failed String::Format: raises Kiv::Exception with the format string and the
/// reason. Declared here so that BasicString needs no exception header.
struct KIV_API BasicStringFormatExceptionHandler
{
    [[noreturn]] static void Invoke(const char* formatString, const char* what);
};

using FormatExceptionHandler = void (*)(const char* formatString, const char* what);

/// The process-wide handler slot lives in the library, so that every shared object sees the same one.
KIV_API FormatExceptionHandler GetFormatExceptionHandler() noexcept;
KIV_API FormatExceptionHandler SetFormatExceptionHandler(FormatExceptionHandler handler) noexcept;
}  // namespace System::Core::Impl

/// The system's text type: a std::basic_string (so Boost's algorithms and the standard library take it
/// as it is) with the system's formatting on top.
template <class CharT>
class BasicString : public std::basic_string<CharT>
{
public:
    using Base = std::basic_string<CharT>;
    using FormatExceptionHandler = System::Core::Impl::FormatExceptionHandler;

    using Base::Base;
    BasicString() = default;
    BasicString(const Base& other) : Base(other) {}
    BasicString(Base&& other) noexcept : Base(std::move(other)) {}
    BasicString(const BasicString&) = default;
    BasicString(BasicString&&) noexcept = default;
    BasicString& operator=(const BasicString&) = default;
    BasicString& operator=(BasicString&&) noexcept = default;
    using Base::operator=;

    /// Formats with fmt's "{}" and "{0}" placeholders. A failure of the format library goes to the
    /// handler; if a replaced handler returns, the result is empty.
    template <class... Args>
    static BasicString Format(const CharT* formatString, const Args&... args)
    {
        try
        {
            return BasicString(fmt::format(fmt::runtime(formatString), args...));
        }
        catch (const std::exception& e)
        {
            System::Core::Impl::GetFormatExceptionHandler()(formatString, e.what());
        }
        return BasicString();
    }

    /// Replaces the handler for the whole process; null restores the default. Returns the previous one.
    static FormatExceptionHandler SetFormatExceptionHandler(FormatExceptionHandler handler) noexcept
    {
        return System::Core::Impl::SetFormatExceptionHandler(handler);
    }
};

using String = BasicString<char>;

}  // namespace Kiv

template <class CharT>
struct std::hash<Kiv::BasicString<CharT>>
{
    std::size_t operator()(const Kiv::BasicString<CharT>& s) const noexcept
    {
        return std::hash<std::basic_string<CharT>>()(s);
    }
};

template <>
struct fmt::formatter<Kiv::String> : fmt::formatter<fmt::string_view>
{
    auto format(const Kiv::String& s, fmt::format_context& ctx) const
    {
        return fmt::formatter<fmt::string_view>::format(fmt::string_view(s.data(), s.size()), ctx);
    }
};
