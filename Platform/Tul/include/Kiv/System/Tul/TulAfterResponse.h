#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
/// Work that the thread serving a call does once the call's response has gone out, so that the caller
/// does not wait for it. It runs whatever became of the response (sent, refused, timed out), on the
/// serving thread, outside the caller's identity scope; it must not throw.
using AfterResponseWork = void (*)(void* context) noexcept;

/// Leaves `work` for after the response of the call that this thread serves. False, and nothing is
/// left, when the thread serves no call of a remote caller or the call has left work already.
KIV_API bool DeferUntilResponded(AfterResponseWork work, void* context) noexcept;

/// Whether DeferUntilResponded would take work now.
KIV_API bool CanDeferUntilResponded() noexcept;

/// The serving side: opens the slot for one call's work and runs what was left when it ends.
class KIV_API AfterResponseSlot
{
public:
    AfterResponseSlot() noexcept;
    AfterResponseSlot(const AfterResponseSlot&) = delete;
    AfterResponseSlot& operator=(const AfterResponseSlot&) = delete;
    /// Runs the work if it has not run yet.
    ~AfterResponseSlot();

    /// Work may be left from here until Close.
    void Open() noexcept;
    /// No more work is taken.
    void Close() noexcept;
    /// Runs the work left, once.
    void Run() noexcept;

private:
    AfterResponseSlot* previous;
    AfterResponseWork work = nullptr;
    void* context = nullptr;
    bool open = false;

    friend bool DeferUntilResponded(AfterResponseWork, void*) noexcept;
    friend bool CanDeferUntilResponded() noexcept;
};
}  // namespace Kiv::System::Tul
