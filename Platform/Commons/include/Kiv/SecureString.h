#pragma once

#include <Kiv/Export.h>

#include <cstddef>

namespace Kiv
{
/// Copies at most `count` characters of `source` (fewer if it ends earlier) into `destination`, never
/// writing past `destinationSize` bytes and always terminating. Returns 0 on a full copy, EINVAL for a
/// null pointer or a zero size, and ERANGE when the copy had to be cut to fit.
KIV_API int SecureStrncpy(char* destination, std::size_t destinationSize, const char* source, std::size_t count);

/// The length of `text`, but at most `maxLength`; 0 for null.
KIV_API std::size_t SecureStrnlen(const char* text, std::size_t maxLength);
}  // namespace Kiv
