// The adb runner: finds the tool beside the running executable, splits one command line into
// arguments, runs the tool with three pipes and hands back what it printed, stdout first.
#include "Wrenlink/mac_special.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>

#include "Wrenlink/ComLog.h"
#include "Wrenlink/Wrenlink.h"
#include "Wrenlink/boundary.h"
#include "Wrenlink/command_line.h"
#include "Wrenlink/pauses.h"
#include "base/platform.h"
#include "Wrenlink/process.h"

namespace {

// Runs are strictly one at a time in the whole process, for the whole life of each tool child.
std::mutex adb_mutex;

constexpr int kPipeAttempts = 5;
// A run that doesn't wait gives the tool a second (pauses.h), then sends it the terminate signal,
// and this long to go before it is killed, so that no run leaves a process behind.
constexpr auto kTerminateGrace = std::chrono::milliseconds(500);

// The runner's complaints: one line each on standard error, in a single write so that lines of
// concurrent threads don't mix.
void complain(std::string line) {
    line += '\n';
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t n = ::write(STDERR_FILENO, rest.data(), rest.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        rest.remove_prefix(static_cast<std::size_t>(n));
    }
}

// The copy rule of every tool output buffer (size >= 1): shorter text goes with its terminator;
// otherwise exactly size - 1 bytes are written and the last byte stays as the caller left it.
void copy_text(std::string_view text, char *output, int32_t size) {
    if (output == nullptr || size < 1) return;
    const auto capacity = static_cast<std::size_t>(size);
    if (text.size() < capacity) {
        std::memcpy(output, text.data(), text.size());
        output[text.size()] = '\0';
    } else {
        std::memcpy(output, text.data(), capacity - 1);
    }
}

// One run of the tool. An object serves a single run, so its text always starts empty.
class ocCommand {
public:
    // `keep`: how much of the text can reach the caller; the tool's output beyond it is dropped.
    explicit ocCommand(std::size_t keep) : _keep(keep) {}
    std::string startForCommand(const std::string &commandLine, bool isWaitExit);

private:
    static bool tool_is_ready(const std::string &path);
    static bool make_pipes(std::optional<wrenlink::process::Pipe> (&pipes)[3]);

    const std::size_t _keep;
    wrenlink::process::Child _task;
    std::string _result;
};

// The tool must exist; a tool without the execute permission gets it (x for all, or 0777 when
// its mode can't be read) and is looked at once more.
bool ocCommand::tool_is_ready(const std::string &path) {
    if (::access(path.c_str(), F_OK) != 0) {
        complain("File " + path + " was not found!");
        return false;
    }
    if (::access(path.c_str(), X_OK) == 0) return true;
    struct stat info {};
    const mode_t mode = ::stat(path.c_str(), &info) == 0 ? (info.st_mode | 0111) : 0777;
    ::chmod(path.c_str(), mode & 07777);
    if (::access(path.c_str(), X_OK) == 0) return true;
    complain("File " + path + " is not excutable!");
    return false;
}

// stdin, stdout and stderr in this order, each with a few attempts of its own.
bool ocCommand::make_pipes(std::optional<wrenlink::process::Pipe> (&pipes)[3]) {
    for (auto &pipe : pipes) {
        for (int attempt = 0; attempt < kPipeAttempts && !pipe; ++attempt) {
            pipe = wrenlink::process::make_pipe();
            if (!pipe) complain("create pipe failed!");
        }
    }
    for (const auto &pipe : pipes) {
        if (!pipe) {
            complain("end------create pipe failed!");
            return false;
        }
    }
    return true;
}

std::string ocCommand::startForCommand(const std::string &commandLine, bool isWaitExit) {
    const std::string path = GetAdbPath();
    std::vector<std::string> argv{path};
    for (auto &arg : wrenlink::split_command_line(commandLine, path)) argv.push_back(std::move(arg));

    if (!tool_is_ready(path)) return _result;
    std::optional<wrenlink::process::Pipe> pipes[3];
    if (!make_pipes(pipes)) return _result;
    // Nothing is ever written to the child's stdin: it stays open, without data, until the run ends.
    const wrenlink::process::Stdio stdio{&*pipes[0], &*pipes[1], &*pipes[2]};
    if (const int failure = wrenlink::process::spawn(path, argv, stdio, _task); failure != 0) {
        complain("launch of " + path + " failed: " + std::generic_category().message(failure));
        return _result;
    }

    if (!isWaitExit) {
        // Nothing is collected from a run that doesn't wait: its text is always empty.
        wrenlink::pauses::wait_whole(wrenlink::pauses::no_wait_run());
        _task.signal(SIGTERM);
        _task.wait_for(kTerminateGrace);  // one that outlives this is killed with the object
        return _result;
    }
    const auto output = _task.collect(_keep);
    _result.append(output.out);
    _result.append(output.err);
    return _result;
}

}  // namespace

namespace wrenlink {

std::string adb_path_for_executable(std::string executable) {
    int slashes = 0;
    for (std::size_t i = executable.size(); i-- > 0;) {
        if (executable[i] == '/' && ++slashes == 2) {
            executable.resize(i);
            break;
        }
    }
    return executable + "/Resources/adb";
}

std::vector<std::string> split_command_line(const std::string &line, const std::string &toolPath) {
    std::string work = line;  // split in place: separating blanks become terminators
    std::vector<std::size_t> starts;
    bool inToken = false;
    unsigned quotes = 0;
    for (std::size_t i = 0; i < work.size(); ++i) {
        char &c = work[i];
        if (c == '"') {
            ++quotes;
            c = ' ';  // ...and then treated as the blank it now is
        } else if (c != ' ') {
            if (!inToken) starts.push_back(i);
            inToken = true;
            continue;
        }
        if (quotes % 2 == 0) {
            c = '\0';
            inToken = false;
        }
    }
    if (starts.empty()) return {toolPath};
    std::vector<std::string> tokens;
    tokens.reserve(starts.size());
    for (const std::size_t start : starts) tokens.emplace_back(work.c_str() + start);
    return tokens;
}

std::string run_adb(const std::string &commandLine, bool isWaitExit, std::size_t keep) {
    std::lock_guard lock(adb_mutex);
    ocCommand command(keep);
    return command.startForCommand(commandLine, isWaitExit);
}

}  // namespace wrenlink

std::string GetAdbPath() {
    const std::string executable = wrenlink::platform::executable_path();
    if (executable.empty()) std::printf("_NSGetExecutablePath fail.....");
    return wrenlink::adb_path_for_executable(executable);
}

int32_t AdbCommandOC(const char *commandLine, char *output, int32_t outputSize, bool isWaitExit) {
    // A null line runs nothing and reads as a run without output.
    // The copy takes at most outputSize - 1 bytes, and whether there were more: outputSize bytes
    // of the text decide everything it writes.
    const std::size_t keep = output != nullptr && outputSize > 0 ? static_cast<std::size_t>(outputSize) : 0;
    const std::string text = commandLine != nullptr ? wrenlink::run_adb(commandLine, isWaitExit, keep) : std::string();
    copy_text(text, output, outputSize);  // outside the lock
    return 0;
}

extern "C" {

int32_t AdbCommand(const char *commandLine, char *output, int32_t outputSize, bool isWaitExit) {
    return wrenlink::guarded<int32_t>(0, [&] { return AdbCommandOC(commandLine, output, outputSize, isWaitExit); });
}

int32_t AdbShellCommand(const char *serial, const char *shellCommand, char *output, bool isWaitExit) {
    return wrenlink::guarded<int32_t>(-1, [&]() -> int32_t {
        ComLog::Log("%s Enter...\r\n", "AdbShellCommand");
        // Any null pointer runs nothing (the three must all be given), as does a line too long
        // for the command buffer.
        if (serial == nullptr || shellCommand == nullptr || output == nullptr) return -1;
        const auto line = wrenlink::format_command("%s -s %s shell %s", "", serial, shellCommand);
        if (!line) return -1;
        char text[wrenlink::kOutputSize] = {};
        AdbCommandOC(line->c_str(), text, wrenlink::kOutputSize, isWaitExit);
        if (text[0] != '\0') std::memcpy(output, text, std::strlen(text) + 1);
        return 1;
    });
}

}  // extern "C"
