// Care of the adb tool as a whole: stray tool processes, the tool's server, port forwards, and
// where the tool lies.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Wrenlink/ComLog.h"
#include "Wrenlink/Wrenlink.h"
#include "Wrenlink/boundary.h"
#include "base/cancellation.h"
#include "Wrenlink/command_line.h"
#include "Wrenlink/mac_special.h"
#include "base/platform.h"
#include "Wrenlink/support.h"

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
        const wrenlink::NoCancel cleanup;
        ::pclose(stream);
    }
};

int32_t kill_other_adb() {
    // Every process whose line holds "adb": tool children and the tool's server among them.
    const std::unique_ptr<FILE, PipelineCloser> list(
        ::popen("ps -ax | grep adb | awk '{ print $1 }'", wrenlink::platform::popen_read_mode()));
    if (list == nullptr) {
        ComLog::Log("[%s] error code %d", "AdbKillOtherADB", errno);
        return 1;
    }
    char text[wrenlink::kCommandLineSize] = {};
    const std::size_t got = std::fread(text, 1, sizeof text - 1, list.get());
    // The list is read before anything is killed: the pipeline's own members are on it.
    const pid_t self = ::getpid();  // the caller's own line may hold the letters too
    for (const auto &piece : whole_lines(std::string(text, got), got == sizeof text - 1)) {
        const int pid = std::atoi(piece.c_str());
        if (pid > 0 && pid != self) ::kill(pid, SIGKILL);
    }
    return 0;
}

int32_t run_ignoring_text(const char *commandLine) {
    char output[wrenlink::kOutputSize] = {};
    return AdbCommandOC(commandLine, output, wrenlink::kOutputSize, true);
}

}  // namespace

extern "C" {

int32_t AdbKillOtherADB(void) { return wrenlink::guarded<int32_t>(0, kill_other_adb); }

int32_t AdbRestartAdb(void) {
    return wrenlink::guarded<int32_t>(0, [] {
        run_ignoring_text(" kill-server");
        return run_ignoring_text(" start-server");
    });
}

int32_t AdbForward(const char *serial, uint32_t localPort, uint32_t phonePort) {
    return wrenlink::guarded<int32_t>(0, [&]() -> int32_t {
        ComLog::Log("%s Enter...\r\n", "AdbForward");
        // No serial, or a line too long for the command buffer: nothing is run, which reads as a
        // run that printed nothing.
        if (serial == nullptr) return 0;
        const auto line = wrenlink::format_command("%s -s %s forward tcp:%u tcp:%u", "", serial, localPort, phonePort);
        if (!line) return 0;
        return run_ignoring_text(line->c_str());
    });
}

// Thread-local, so that the text stays put for the caller until its thread's next call.
const char *AndGetAdbFullpath(void) {
    thread_local std::string path;
    return wrenlink::guarded<const char *>("", [] {
        path = GetAdbPath();
        return path.c_str();
    });
}

void KillInstallDriver(void) {}

}  // extern "C"
