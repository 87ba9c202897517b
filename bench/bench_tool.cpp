// One run of the adb tool: AdbCommand against a minimal posix_spawn + pipes + waitpid loop that
// runs the same one-line tool (bench/one_line_tool.cpp, where the library looks for adb) and reads
// its output.
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "base/platform.h"
#include "contest.h"
#include "ratio_report.h"

extern char **environ;

namespace {

using wrenlink::platform::cloexec_pipe;

// The least a runner must do: spawn with stdin, stdout and stderr on pipes (the library's runner
// gives the tool all three), read stdout and stderr to their end, reap.
std::string raw_run(const char *tool) {
    int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1};
    if (!cloexec_pipe(in) || !cloexec_pipe(out) || !cloexec_pipe(err)) {
        for (const int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) {
            if (fd >= 0) ::close(fd);
        }
        return {};
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    char *argv[] = {const_cast<char *>(tool), const_cast<char *>("devices"), nullptr};
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, tool, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    std::string text, errText;
    if (rc == 0) {
        pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
        int open = 2;
        char buf[4096];
        while (open > 0 && ::poll(fds, 2, -1) > 0) {
            for (int i = 0; i < 2; ++i) {
                if (fds[i].fd < 0 || fds[i].revents == 0) continue;
                const ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
                if (n > 0) {
                    (i == 0 ? text : errText).append(buf, static_cast<size_t>(n));
                } else {
                    fds[i].fd = -1;
                    --open;
                }
            }
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
    }
    ::close(in[1]);
    ::close(out[0]);
    ::close(err[0]);
    return text + errText;
}

bool library_run() {
    char output[2048] = {};
    AdbCommand(" devices", output, sizeof output, true);
    return std::strncmp(output, "List of devices attached", 24) == 0;
}

bool raw_spawn_run() { return raw_run(WRENLINK_BENCH_TOOL).rfind("List of devices attached", 0) == 0; }

void ToolRun(benchmark::State &state) {
    wrenlink::bench::Contest contest(state, {"library", "raw_spawn"});
    contest.run([](std::size_t variant) { return variant == 0 ? library_run() : raw_spawn_run(); });
    contest.report_time();
}

}  // namespace

BENCHMARK(ToolRun)->UseRealTime()->Unit(benchmark::kMicrosecond);

static const int kToolGoal = wrenlink::bench::goal("ToolRun", "raw_spawn", wrenlink::bench::Bound::AtMost, 1.15);
