// A helper program that a test or a benchmark starts for a while (an agent, simulated phones): its
// standard output comes back on a pipe, line by line; its standard error goes where the caller says
// (by default /dev/null); it is stopped with a signal and waited for, at the latest when the object
// goes. Every such program of the tests and the benchmarks is started here.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace wrenlink::support {

class ChildProcess {
public:
    struct Options {
        std::string stderrPath = "/dev/null";  // truncated and written; empty: the caller's stderr
        bool endWithParent = false;            // Linux: SIGTERM when the starting thread's process dies
        bool stderrToOutput = false;           // standard error joins standard output on the pipe
    };

    ChildProcess() = default;
    // argv[0] is the program's path. started() tells whether it could be started.
    explicit ChildProcess(const std::vector<std::string> &argv) : ChildProcess(argv, Options{}) {}
    ChildProcess(const std::vector<std::string> &argv, const Options &options);
    ChildProcess(ChildProcess &&other) noexcept;
    ChildProcess &operator=(ChildProcess &&other) noexcept;
    ~ChildProcess();

    bool started() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    // The next line it printed, without its line end; empty when none came within `deadline` or
    // the program closed its output.
    std::string read_line(std::chrono::milliseconds deadline = std::chrono::seconds(20));
    // What it prints until it closes its output, at most `deadline` long; false when the deadline
    // came first.
    bool read_all(std::string &text, std::chrono::milliseconds deadline);
    // Whether it has ended (it is then reaped, and `status` holds its wait status); never waits.
    bool ended(int &status);
    // Sends `signal` (0 sends none) and waits for the end, at most `grace` (then the program is
    // killed): its exit status, or -1 when it died by a signal, had to be killed or was not running.
    int stop(int signal, std::chrono::milliseconds grace = std::chrono::seconds(10));
    void stop();

private:
    pid_t pid_ = -1;
    UniqueFd output_;
    std::string pending_;  // read but not yet handed out
};

}  // namespace wrenlink::support
