#include "soak/adb_tool.h"

#include "support/child_process.h"

namespace wrenlink::soak {

ToolRun run_adb(const std::vector<std::string> &arguments, std::chrono::milliseconds limit) {
    std::vector<std::string> argv{WRENLINK_REAL_ADB};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    support::ChildProcess::Options options;
    options.stderrToOutput = true;
    support::ChildProcess tool(argv, options);
    ToolRun run;
    if (!tool.started()) return run;
    run.finished = tool.read_all(run.text, limit);
    // Its output has ended, so it is on its way out; killed after a grace when it is not.
    tool.stop(0, std::chrono::seconds(2));
    return run;
}

}  // namespace wrenlink::soak
