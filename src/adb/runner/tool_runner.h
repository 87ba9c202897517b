// One run of the adb tool with its output collected: the way down of every tool command, for the
// exported AdbCommand and AdbShellCommand and for the device operations alike.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace wrenlink::adb {

// One run under the runner's lock, for the whole life of the tool child: the tool's stdout, then
// its stderr, each up to its first NUL, at most `keep` bytes of the two (the rest of what the tool
// prints is read and dropped). Empty when nothing could be run, and always for a run that doesn't
// wait for the tool: that one gets a second, then the terminate signal, then the kill.
std::string run_tool(const std::string &commandLine, bool isWaitExit, std::size_t keep);

// The copy rule of every tool output buffer (size >= 1): shorter text goes with its terminator;
// otherwise exactly size - 1 bytes are written and the last byte stays as the caller left it.
void copy_tool_text(std::string_view text, char *output, int32_t size);

// `<tool> -s <serial> shell <command>`, waited for or not, into `output` (2048 bytes), which is
// written only when the phone printed something. False, with nothing run, when the line does not
// fit the command buffer.
bool run_shell_command(const char *serial, const char *command, char *output, bool isWaitExit);

// One run into a caller's buffer: run_tool, then, outside the lock, the copy rule. A null line runs
// nothing and reads as a run without output.
void run_tool_into(const char *commandLine, char *output, int32_t outputSize, bool isWaitExit);

}  // namespace wrenlink::adb
