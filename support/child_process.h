// A program that the bench starts for the length of a run (an agent, simulated phones): its
// standard output comes back on a pipe, line by line, its standard error goes to /dev/null, and it
// gets SIGTERM and is waited for when the object goes. scripts/bench.sh runs the bench in a PID
// namespace of its own, so that nothing started here outlives an interrupted run.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace wrenlink::bench {

// A pipe whose ends a child inherits only where it is given one of them. False on failure.
bool cloexec_pipe(int (&fds)[2]);

class ChildProcess {
public:
    ChildProcess() = default;
    // argv[0] is the program's path. started() tells whether it could be started.
    explicit ChildProcess(const std::vector<std::string> &argv);
    ChildProcess(ChildProcess &&other) noexcept;
    ChildProcess &operator=(ChildProcess &&other) noexcept;
    ~ChildProcess();

    bool started() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    // The next line it printed, without its line end; empty when none came within `deadline` or
    // the program closed its output.
    std::string read_line(std::chrono::milliseconds deadline = std::chrono::seconds(20));
    void stop();

private:
    pid_t pid_ = -1;
    UniqueFd output_;
    std::string pending_;  // read but not yet handed out
};

}  // namespace wrenlink::bench
