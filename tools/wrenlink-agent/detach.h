// --detach: the agent leaves the process that started it (an `adb shell` on a phone) and lives on
// its own, so that the shell, and adb with it, can end at once.
#pragma once

#include <string>

#include "base/unique_fd.h"
#include "pid_file.h"

namespace wrenlink::reference_agent {

// Forks the agent off into a session of its own (a double fork: it is no session leader, so no
// terminal's hangup can reach it), which writes its pid in `pid_file` while its standard error is
// still the caller's (a failure there ends it with the reason), then puts its standard streams on
// /dev/null, or standard error on `log_path` when that is not empty, and its working directory on
// "/". Returns in the agent alone, with the pipe end that report_serving() takes. The starting
// process never returns from it: it waits until the agent serves, prints `line` on standard output
// and exits 0, or exits 1 when the agent ended first. Throws std::system_error, in the starting
// process, when the log file, the pipe or the fork cannot be had.
UniqueFd detach(const std::string &line, const std::string &log_path, PidFile &pid_file);

// Tells the waiting starting process that the agent serves.
void report_serving(UniqueFd ready);

}  // namespace wrenlink::reference_agent
