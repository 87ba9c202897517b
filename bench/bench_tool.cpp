// One run of the adb tool: AdbCommand against a minimal posix_spawn + pipes + waitpid loop that
// runs the same one-line tool and reads its output.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "ratio_report.h"

extern char **environ;

namespace {

// The least a runner must do: spawn with stdout and stderr on pipes, read both to the end, reap.
std::string raw_run(const char *tool) {
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    char *argv[] = {const_cast<char *>(tool), const_cast<char *>("devices"), nullptr};
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, tool, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
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
    ::close(out[0]);
    ::close(err[0]);
    return text + errText;
}

void ToolRun_library(benchmark::State &state) {
    char output[2048];
    for (auto _ : state) {
        std::memset(output, 0, sizeof output);
        AdbCommand(" devices", output, sizeof output, true);
        if (std::strncmp(output, "List of devices attached", 24) != 0) {
            state.SkipWithError("the library did not run the tool");
            break;
        }
    }
}

void ToolRun_raw_spawn(benchmark::State &state) {
    for (auto _ : state) {
        const auto text = raw_run(WRENLINK_BENCH_TOOL);
        if (text.rfind("List of devices attached", 0) != 0) {
            state.SkipWithError("the raw loop did not run the tool");
            break;
        }
    }
}

}  // namespace

BENCHMARK(ToolRun_library)->Name("ToolRun/library")->UseRealTime()->MinTime(2.0);
BENCHMARK(ToolRun_raw_spawn)->Name("ToolRun/raw_spawn")->UseRealTime()->MinTime(2.0);

int main(int argc, char **argv) { return wrenlink::bench::run_with_ratios(argc, argv); }
