#pragma once

#include <Nm/TypeName.h>

#include <Kiv/BasicString.h>
#include <Kiv/Exception.h>

#include <sstream>
#include <type_traits>

namespace Kiv
{
/// A value of an enumeration for checked conversion to text. A class rather than a function so that
/// its own type name can stand in the failure message.
template <class T>
class Enum
{
public:
    explicit Enum(T value) noexcept : value(value) {}

    T GetValue() const noexcept { return value; }

    /// The text of the value; throws Exception for a code that has none.
    String ToString() const
    {
        std::ostringstream out;
        out << value;
        if (out.fail())
        {
            // The code goes in as a char, so the message carries the raw byte rather than digits.
            throw Exception("Invalid value for Enum '{0}' occurs: {1}", TypeName<Enum<T>>(),
                            static_cast<char>(static_cast<std::underlying_type_t<T>>(value)));
        }
        return String(out.str());
    }

private:
    T value;
};
}  // namespace Kiv
