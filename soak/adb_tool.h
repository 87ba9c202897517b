// The adb tool run by the soak itself, beside the library: for the repairs of the keeper (connect,
// forwards) and for the injector's removal of a forward. These runs go to the tool directly, not
// through the library's AdbCommand: the library runs its tool one at a time for the whole
// process, so a repair would queue behind a run that waits on a stalled phone for seconds, and the
// soak's own work would count among the calls it measures.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace wrenlink::soak {

struct ToolRun {
    bool finished = false;  // within the time limit
    std::string text;       // standard output and standard error, as they came
};

// Runs the tool with `arguments` against the private server, at most `limit` long (then it is
// killed). Never a time limit of the library's: this is the soak's own run.
ToolRun run_adb(const std::vector<std::string> &arguments, std::chrono::milliseconds limit = std::chrono::seconds(10));

}  // namespace wrenlink::soak
