#include "core/repository/Interruption.h"

#include <atomic>

namespace dorvane {

namespace {

// Lock-free, so that a signal handler may set it.
std::atomic<bool> requested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

} // namespace

void RequestInterruption() noexcept { requested.store(true, std::memory_order_relaxed); }

bool InterruptionRequested() noexcept { return requested.load(std::memory_order_relaxed); }

void ClearInterruption() noexcept { requested.store(false, std::memory_order_relaxed); }

void CheckInterruption()
{
    if (InterruptionRequested())
        throw OperationInterrupted();
}

} // namespace dorvane
