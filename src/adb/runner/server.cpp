#include "adb/runner/server.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "adb/runner/command_line.h"
#include "adb/runner/tool_runner.h"
#include "adb/text/string_split.h"
#include "base/cancellation.h"
#include "base/platform.h"

namespace wrenlink::adb {

namespace {

// The process numbers on a list read from the pipeline. A list that filled the read may end in a
// number cut in two, which would name some other process: that last piece is dropped.
std::vector<std::string> whole_lines(std::string list, bool filledTheRead) {
    if (filledTheRead && !list.empty() && list.back() != '\n') list.erase(list.find_last_of('\n') + 1);
    std::vector<std::string> pieces;
    StringSplit(pieces, list, "\n");
    return pieces;
}

// The pipeline's stream, closed (and its shell reaped) on every way out, a cancelled thread's too.
struct PipelineCloser {
    void operator()(FILE *stream) const noexcept {
        const NoCancel cleanup;
        ::pclose(stream);
    }
};

// One run waited for, its text dropped.
void run_ignoring_text(const std::string &commandLine) { (void)run_tool(commandLine, true, kOutputSize); }

}  // namespace

int32_t kill_other_adb() {
    // Every process whose line holds "adb": tool children and the tool's server among them.
    const std::unique_ptr<FILE, PipelineCloser> list(
        ::popen("ps -ax | grep adb | awk '{ print $1 }'", platform::popen_read_mode()));
    if (list == nullptr) return 1;
    char text[kCommandLineSize] = {};
    const std::size_t got = std::fread(text, 1, sizeof text - 1, list.get());
    // The list is read before anything is killed: the pipeline's own members are on it.
    const pid_t self = ::getpid();  // the caller's own line may hold the letters too
    for (const auto &piece : whole_lines(std::string(text, got), got == sizeof text - 1)) {
        const int pid = std::atoi(piece.c_str());
        if (pid > 0 && pid != self) ::kill(pid, SIGKILL);
    }
    return 0;
}

void restart_server() {
    run_ignoring_text(" kill-server");
    run_ignoring_text(" start-server");
}

void forward(const char *serial, uint32_t localPort, uint32_t phonePort) {
    // No serial, or a line too long for the command buffer: nothing is run, which reads as a run
    // that printed nothing.
    if (serial == nullptr) return;
    if (const auto line = tool_line(serial, "forward tcp:%u tcp:%u", localPort, phonePort)) run_ignoring_text(*line);
}

}  // namespace wrenlink::adb
