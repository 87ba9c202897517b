// The fixed pauses of the adb half: a run that doesn't wait gives the tool one second before the
// terminate signal, and the root shell gives the phone's shell half a second to answer each line.
// They are part of how those routes work. Only tests that repeat a route a thousand times shorten
// them, through this header of the static core; nothing exported reaches it.
#pragma once

#include <chrono>

namespace wrenlink::pauses {

std::chrono::milliseconds no_wait_run() noexcept;
std::chrono::milliseconds shell_answer() noexcept;

// Waits `length` on the steady clock, however often the host's signals interrupt the sleep. A
// cancellation point, as any sleep.
void wait_whole(std::chrono::milliseconds length);

// Every pause becomes `each`, until restore().
void shorten(std::chrono::milliseconds each) noexcept;
void restore() noexcept;

}  // namespace wrenlink::pauses
