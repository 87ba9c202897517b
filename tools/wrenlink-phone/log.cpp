#include "log.h"

#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "base/log.h"

namespace phone {

namespace {
std::atomic<int> g_verbosity{0};
}  // namespace

void set_verbosity(int level) noexcept { g_verbosity = level; }
int verbosity() noexcept { return g_verbosity; }

void log(int level, const char *format, ...) noexcept {
    if (level > g_verbosity) return;
    char line[1024];
    const int prefix = std::snprintf(line, sizeof line, "wrenlink-phone[%d]: ", static_cast<int>(::getpid()));
    va_list args;
    va_start(args, format);
    std::vsnprintf(line + prefix, sizeof line - static_cast<size_t>(prefix), format, args);
    va_end(args);
    wrenlink::log_line(line);
}

}  // namespace phone
