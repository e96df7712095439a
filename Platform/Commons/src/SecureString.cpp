#include <Kiv/SecureString.h>

#include <cerrno>
#include <cstring>

namespace Kiv
{
int SecureStrncpy(char* destination, std::size_t destinationSize, const char* source, std::size_t count)
{
    if (destination == nullptr || destinationSize == 0)
    {
        return EINVAL;
    }
    if (source == nullptr)
    {
        destination[0] = '\0';
        return EINVAL;
    }
    const std::size_t available = SecureStrnlen(source, count);
    const std::size_t copied = available < destinationSize ? available : destinationSize - 1;
    std::memcpy(destination, source, copied);
    destination[copied] = '\0';
    return copied == available ? 0 : ERANGE;
}

std::size_t SecureStrnlen(const char* text, std::size_t maxLength)
{
    if (text == nullptr)
    {
        return 0;
    }
    const void* end = std::memchr(text, '\0', maxLength);
    return end == nullptr ? maxLength : static_cast<std::size_t>(static_cast<const char*>(end) - text);
}
}  // namespace Kiv
