#include "adb/runner/pauses.h"

#include <atomic>
#include <cstdint>
#include <thread>

namespace wrenlink::pauses {

namespace {
constexpr int64_t kNoWaitRunMs = 1000;
constexpr int64_t kShellAnswerMs = 500;
// 0: the fixed pauses; otherwise every pause, in milliseconds.
std::atomic<int64_t> g_shortened{0};

std::chrono::milliseconds pause(int64_t fixed) noexcept {
    const int64_t shortened = g_shortened.load(std::memory_order_relaxed);
    return std::chrono::milliseconds(shortened != 0 ? shortened : fixed);
}
}  // namespace

std::chrono::milliseconds no_wait_run() noexcept { return pause(kNoWaitRunMs); }
std::chrono::milliseconds shell_answer() noexcept { return pause(kShellAnswerMs); }

void wait_whole(std::chrono::milliseconds length) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + length;
    for (auto now = Clock::now(); now < deadline; now = Clock::now()) std::this_thread::sleep_for(deadline - now);
}

void shorten(std::chrono::milliseconds each) noexcept { g_shortened.store(each.count(), std::memory_order_relaxed); }
void restore() noexcept { g_shortened.store(0, std::memory_order_relaxed); }

}  // namespace wrenlink::pauses
