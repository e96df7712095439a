#pragma once

// Makes GoogleTest print Kiv::String as text in failure messages, not as a list of characters.

#include <Kiv/BasicString.h>

#include <gtest/gtest.h>

#include <ostream>

namespace Kiv
{
inline void PrintTo(const String& text, std::ostream* out)
{
    ::testing::internal::UniversalPrint(static_cast<const std::string&>(text), out);
}
}  // namespace Kiv
