// How the device operations reach the phone: one zeroed output buffer per run, a line formed by
// format_command or tool_line, and one of three routes (a tool run, a line for the phone's shell,
// a line in the root shell). A line that could not be formed runs nothing and leaves the text
// empty, so that every operation decides on the text alone.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "adb/runner/command_line.h"
#include "adb/runner/root_shell.h"
#include "adb/runner/tool_runner.h"

namespace wrenlink::adb {

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
std::string_view tool_text(const Line &line, ToolOutputOf<N> &out) {
    if (line) run_tool_into(line->c_str(), out.bytes, static_cast<int32_t>(N), true);
    return out.text();
}

// `shellText` run by the phone's shell (`<tool> -s serial shell ...`), into a buffer of at least
// 2048 bytes that is written only when the phone printed something. A run that cannot have its
// memory reads as one that printed nothing.
inline std::string_view shell_text(const char *serial, const Line &shellText, char *out) {
    try {
        if (shellText) run_shell_command(serial, shellText->c_str(), out, true);
    } catch (const std::bad_alloc &) {
    }
    return text_in(out, static_cast<std::size_t>(kOutputSize));
}

// One line in the root shell; the text it leaves replaces the buffer's from its start. A shell
// that cannot have its memory leaves the buffer as it was.
inline std::string_view root_text(const std::string &line, ToolOutput &out) {
    try {
        run_root_shell(line.c_str(), out.bytes);
    } catch (const std::bad_alloc &) {
    }
    return out.text();
}

}  // namespace wrenlink::adb
