// The process runner: one run of the adb tool with its output collected.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// <folder of the running executable>/../Resources/adb, found anew for every run.
std::string GetAdbPath();

// Runs the tool once under the runner's lock and copies stdout-then-stderr into `output` by the
// copy rule: text shorter than outputSize is copied with its terminator, otherwise exactly
// outputSize - 1 bytes and nothing else. Always 0.
int32_t AdbCommandOC(const char *commandLine, char *output, int32_t outputSize, bool isWaitExit);

namespace wrenlink {

// The tool's path for an executable at `executable`: the path is cut at its second "/" from the
// end (a path with fewer stays whole) and "/Resources/adb" is appended.
std::string adb_path_for_executable(std::string executable);

// The tool's arguments for a command line (the launch path, always the tool, is not among them).
// Only blanks separate; a double quote turns into a blank, and while an odd number of quotes has
// been seen over the line, blanks don't separate. A line without any token gives `toolPath` as
// the only argument.
std::vector<std::string> split_command_line(const std::string &line, const std::string &toolPath);

// One run under the runner's lock: the tool's stdout, then its stderr, each up to its first NUL, at
// most `keep` bytes of the two (the rest of what the tool prints is read and dropped). Empty when
// nothing could be run, and always for a run that doesn't wait for the tool.
std::string run_adb(const std::string &commandLine, bool isWaitExit, std::size_t keep);

}  // namespace wrenlink
