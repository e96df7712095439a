#include <Kiv/BasicString.h>
#include <Kiv/Exception.h>

#include <atomic>

namespace Kiv::System::Core::Impl
{
namespace
{
std::atomic<FormatExceptionHandler> handlerSlot{&BasicStringFormatExceptionHandler::Invoke};
}

void BasicStringFormatExceptionHandler::Invoke(const char* formatString, const char* what)
{
    String text("Invalid String::Format(..) operation occurs with format string '");
    if (formatString != nullptr)
    {
        text += formatString;
    }
    text += "': ";
    if (what != nullptr)
    {
        text += what;
    }
    throw Exception(Exception::Verbatim{}, std::move(text));
}

FormatExceptionHandler GetFormatExceptionHandler() noexcept
{
    return handlerSlot.load(std::memory_order_acquire);
}

FormatExceptionHandler SetFormatExceptionHandler(FormatExceptionHandler handler) noexcept
{
    if (handler == nullptr)
    {
        handler = &BasicStringFormatExceptionHandler::Invoke;
    }
    return handlerSlot.exchange(handler, std::memory_order_acq_rel);
}
}  // namespace Kiv::System::Core::Impl
