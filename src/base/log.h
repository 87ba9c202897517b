// Lines on standard error, for the library's complaints and the tools' logs.
#pragma once

#include <string_view>

namespace wrenlink {

// Writes `line` and a line feed in one system call, so that lines of concurrent threads (and of
// other processes on the same stream) never mix. Nothing is allocated; errors are ignored. A
// cancellation point, as any write.
void log_line(std::string_view line);

}  // namespace wrenlink
