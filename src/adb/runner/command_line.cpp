#include "adb/runner/command_line.h"

#include <cstdarg>
#include <cstdio>

namespace wrenlink::adb {

namespace {

__attribute__((format(printf, 1, 0))) std::optional<std::string> format_within_buffer(const char *format,
                                                                                   va_list args) {
    char line[kCommandLineSize] = {};
    const int n = std::vsnprintf(line, sizeof line, format, args);
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof line) return std::nullopt;
    return std::string(line, static_cast<std::size_t>(n));
}

}  // namespace

std::optional<std::string> format_command(const char *format, ...) {
    va_list args;
    va_start(args, format);
    auto line = format_within_buffer(format, args);
    va_end(args);
    return line;
}

std::optional<std::string> tool_line(const char *serial, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const auto rest = format_within_buffer(format, args);
    va_end(args);
    if (!rest) return std::nullopt;  // the whole line would be longer still
    return format_command(" -s %s %s", serial, rest->c_str());
}

}  // namespace wrenlink::adb
