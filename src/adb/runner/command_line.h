// Command lines of the adb tool. Every operation forms its line into a 512-byte buffer and hands
// the tool's text back through a 2048-byte one; a line that would not fit its buffer runs nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace wrenlink::adb {

constexpr std::size_t kCommandLineSize = 512;
constexpr int32_t kOutputSize = 2048;

// printf-style; std::nullopt when the formed line has more than kCommandLineSize - 1 characters.
std::optional<std::string> format_command(const char *format, ...) __attribute__((format(printf, 1, 2)));

// A line for one phone: " -s <serial> " and then `format` formed printf-style, as in
// tool_line(serial, "shell getprop %s", name). std::nullopt when the whole line does not fit, as
// with format_command.
std::optional<std::string> tool_line(const char *serial, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

}  // namespace wrenlink::adb
