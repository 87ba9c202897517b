#include "agent_process.h"

#include <signal.h>

#include <stdexcept>

namespace wrenlink::e2e {

AgentProcess::AgentProcess(const std::filesystem::path &root)
    : process_({WRENLINK_AGENT_PATH, "--port", "0", root.string()}, {.stderrPath = ""}) {
    // The first line: "listening on 127.0.0.1:PORT".
    const std::string line = process_.read_line(std::chrono::seconds(10));
    const std::size_t colon = line.rfind(':');
    if (line.rfind("listening on ", 0) != 0 || colon == std::string::npos) {
        process_.stop(SIGKILL);
        throw std::runtime_error("the agent did not start: " + line);
    }
    port_ = static_cast<uint32_t>(std::stoul(line.substr(colon + 1)));
}

}  // namespace wrenlink::e2e
