// How a command line becomes the tool's arguments.
#pragma once

#include <string>
#include <vector>

namespace wrenlink::adb {

// The tool's arguments for a command line (the launch path, always the tool, is not among them).
// Only blanks separate; a double quote turns into a blank, and while an odd number of quotes has
// been seen over the line, blanks don't separate. A line without any token gives `toolPath` as
// the only argument.
std::vector<std::string> split_command_line(const std::string &line, const std::string &toolPath);

}  // namespace wrenlink::adb
