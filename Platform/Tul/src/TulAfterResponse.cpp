#include <Kiv/System/Tul/TulAfterResponse.h>

namespace Kiv::System::Tul
{
namespace
{
// The slot of the call this thread serves; null outside a serving loop.
thread_local AfterResponseSlot* currentSlot = nullptr;
}  // namespace

AfterResponseSlot::AfterResponseSlot() noexcept : previous(currentSlot)
{
    currentSlot = this;
}

AfterResponseSlot::~AfterResponseSlot()
{
    Run();
    currentSlot = previous;
}

void AfterResponseSlot::Open() noexcept
{
    open = true;
}

void AfterResponseSlot::Close() noexcept
{
    open = false;
}

void AfterResponseSlot::Run() noexcept
{
    open = false;
    AfterResponseWork left = work;
    work = nullptr;
    if (left != nullptr)
    {
        left(context);
    }
}

bool CanDeferUntilResponded() noexcept
{
    return currentSlot != nullptr && currentSlot->open && currentSlot->work == nullptr;
}

bool DeferUntilResponded(AfterResponseWork work, void* context) noexcept
{
    if (!CanDeferUntilResponded() || work == nullptr)
    {
        return false;
    }
    currentSlot->work = work;
    currentSlot->context = context;
    return true;
}
}  // namespace Kiv::System::Tul
