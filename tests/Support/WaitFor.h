#pragma once

#include <chrono>
#include <thread>

namespace Kiv::Testing
{
/// Polls `predicate` until it holds or `limit` passes; true if it held. The limit is generous because
/// the machines that run the tests are small and loaded; a passing test never waits for it.
template <class Predicate>
bool WaitFor(Predicate predicate, std::chrono::milliseconds limit = std::chrono::seconds(30))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!predicate())
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
}  // namespace Kiv::Testing
