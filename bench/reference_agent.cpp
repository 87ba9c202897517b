#include "reference_agent.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace wrenlink::bench {

namespace fs = std::filesystem;

namespace {

// The first line the agent prints: "listening on ADDRESS:PORT".
uint16_t port_in(const std::string &line) {
    const auto colon = line.rfind(':');
    if (line.rfind("listening on ", 0) != 0 || colon == std::string::npos) return 0;
    return static_cast<uint16_t>(std::atoi(line.c_str() + colon + 1));
}

}  // namespace

ReferenceAgent *ReferenceAgent::get() {
    static std::unique_ptr<ReferenceAgent> agent = [] {
        std::unique_ptr<ReferenceAgent> a(new ReferenceAgent);
        std::string error;
        if (!a->start(error)) {
            std::fprintf(stderr, "reference agent: %s\n", error.c_str());
            a.reset();
        }
        return a;
    }();
    return agent.get();
}

bool ReferenceAgent::start(std::string &error) {
    root_ = make_scratch_directory();
    if (root_.empty()) {
        error = "no temporary directory";
        return false;
    }
    if (!write_pattern_file(root_ + "/read.bin", kFileSize) || !write_pattern_file(root_ + "/write.bin", kFileSize) ||
        !write_pattern_file(root_ + "/DCIM/a.jpg", 100) || !write_pattern_file(root_ + "/DCIM/b.jpg", 200) ||
        !write_pattern_file(root_ + "/DCIM/c.jpg", 300)) {
        error = "cannot write the served files under " + root_;
        return false;
    }

    agent_ = AgentProcess(root_);
    if (agent_.port() == 0) error = std::string(WRENLINK_AGENT_PATH) + " did not start or did not say where it listens";
    return agent_.port() != 0;
}

AgentProcess::AgentProcess(const std::string &root)
    : process_({WRENLINK_AGENT_PATH, "--port", "0", root}), port_(port_in(process_.read_line())) {}

ReferenceAgent::~ReferenceAgent() {
    agent_ = AgentProcess();  // stopped before its files go
    std::error_code ec;
    if (!root_.empty()) fs::remove_all(root_, ec);
}

}  // namespace wrenlink::bench
