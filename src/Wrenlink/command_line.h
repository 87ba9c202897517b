// Command lines of the adb tool. Every operation forms its line into a 512-byte buffer and hands
// the tool's text back through a 2048-byte one; a line that would not fit its buffer runs nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace wrenlink {

constexpr std::size_t kCommandLineSize = 512;
constexpr int32_t kOutputSize = 2048;

// printf-style; std::nullopt when the formed line has more than kCommandLineSize - 1 characters.
std::optional<std::string> format_command(const char *format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace wrenlink
