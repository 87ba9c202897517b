// The tool's own diagnostics on standard error: one line each, never interleaved between threads.
#pragma once

namespace phone {

// 0: failures only; 1: connections and the services opened; 2: every transport message too.
void set_verbosity(int level) noexcept;
int verbosity() noexcept;

[[gnu::format(printf, 2, 3)]] void log(int level, const char *format, ...) noexcept;

}  // namespace phone
