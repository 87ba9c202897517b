#include "Wrenlink/command_line.h"

#include <cstdarg>
#include <cstdio>

namespace wrenlink {

std::optional<std::string> format_command(const char *format, ...) {
    char line[kCommandLineSize] = {};
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof line) return std::nullopt;
    return std::string(line, static_cast<std::size_t>(n));
}

}  // namespace wrenlink
