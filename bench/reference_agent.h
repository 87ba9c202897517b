// The reference agent program (tools/wrenlink-agent) as a process of the bench.
//
// ReferenceAgent is the one started for the whole run on a port of its own and stopped at exit. It
// serves a fresh directory in memory (/dev/shm where there is one, so every read and write stays in
// the page cache) holding:
//
//   /read.bin, /write.bin   kFileSize bytes each, for the file benchmarks
//   /DCIM/*.jpg             three small images, so that a media list has something to list
//
// More agents can serve the same directory (AgentProcess), one for each simulated phone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/child_process.h"
#include "support/scratch.h"

namespace wrenlink::bench {

constexpr int64_t kFileSize = 16 << 20;

// A fresh directory for the bench's files: under $WRENLINK_BENCH_TMPDIR when it is set
// (scripts/bench.sh removes that whatever happens to the run), else in memory where the system
// offers it. Empty on failure; the caller removes it.
inline std::string make_scratch_directory() {
    return support::make_scratch_directory("WRENLINK_BENCH_TMPDIR", "wrenlink-bench");
}
using support::write_pattern_file;

// The agent serving `root` on a free loopback port; port() is 0 when it could not be started.
class AgentProcess {
public:
    AgentProcess() = default;
    explicit AgentProcess(const std::string &root);
    uint16_t port() const { return port_; }
    pid_t pid() const { return process_.pid(); }

private:
    support::ChildProcess process_;
    uint16_t port_ = 0;
};

class ReferenceAgent {
public:
    // The running agent, started on the first call; null (with the reason on stderr, once) when it
    // cannot be started.
    static ReferenceAgent *get();

    uint16_t port() const { return agent_.port(); }
    // The directory it serves.
    const std::string &root() const { return root_; }

    ReferenceAgent(const ReferenceAgent &) = delete;
    ReferenceAgent &operator=(const ReferenceAgent &) = delete;
    ~ReferenceAgent();

private:
    ReferenceAgent() = default;
    bool start(std::string &error);

    std::string root_;
    AgentProcess agent_;
};

}  // namespace wrenlink::bench
