// How the device operations reach the phone: one zeroed output buffer per run, a line formed by
// format_command, and one of the three routes (a tool run, a shell text behind AdbShellCommand, a
// line in the root shell). A line that could not be formed runs nothing and leaves the text
// empty, so that every operation decides on the text alone.
#pragma once

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "Wrenlink/Wrenlink.h"
#include "Wrenlink/command_line.h"
#include "Wrenlink/mac_special.h"

namespace wrenlink {

using Line = std::optional<std::string>;

// The text that stands in a buffer of `size` bytes: up to its first NUL, or all of it.
inline std::string_view text_in(const char *buffer, std::size_t size) noexcept {
    return {buffer, strnlen(buffer, size)};
}

// Writes `text` and a terminator into a caller's buffer that has room for both: texts taken from
// one output hold at most 2047 bytes.
inline void write_text(char *to, std::string_view text) noexcept {
    std::memcpy(to, text.data(), text.size());
    to[text.size()] = '\0';
}

template <std::size_t N>
struct ToolOutputOf {
    char bytes[N] = {};
    void clear() noexcept { std::memset(bytes, 0, N); }
    std::string_view text() const noexcept { return text_in(bytes, N); }
};
using ToolOutput = ToolOutputOf<static_cast<std::size_t>(kOutputSize)>;

// One run of the tool, waited for, into the whole of `out`.
template <std::size_t N>
std::string_view run_tool(const Line &line, ToolOutputOf<N> &out) {
    if (line) AdbCommandOC(line->c_str(), out.bytes, static_cast<int32_t>(N), true);
    return out.text();
}

// `shellText` run by the phone's shell through `adb -s serial shell`, into a buffer of at least
// 2048 bytes that AdbShellCommand writes only when the phone printed something.
inline std::string_view run_shell(const char *serial, const Line &shellText, char *out) {
    if (shellText) AdbShellCommand(serial, shellText->c_str(), out, true);
    return text_in(out, static_cast<std::size_t>(kOutputSize));
}

// One line in the root shell; the text it leaves replaces the buffer's from its start.
inline std::string_view run_root_shell(const std::string &line, ToolOutput &out) {
    AdbRootShell(nullptr, line.c_str(), out.bytes);
    return out.text();
}

}  // namespace wrenlink
