// The adb runner: finds the tool beside the running executable, splits one command line into
// arguments, runs the tool with three pipes and hands back what it printed, stdout first.
#include "adb/runner/tool_runner.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include "adb/process/child.h"
#include "adb/runner/command_line.h"
#include "adb/runner/pauses.h"
#include "adb/runner/tokeniser.h"
#include "adb/runner/tool_path.h"
#include "base/log.h"

namespace wrenlink::adb {

namespace {

// Runs are strictly one at a time in the whole process, for the whole life of each tool child.
std::mutex tool_run_mutex;

constexpr int kPipeAttempts = 5;
// A run that doesn't wait gives the tool a second (pauses.h), then sends it the terminate signal,
// and this long to go before it is killed, so that no run leaves a process behind.
constexpr auto kTerminateGrace = std::chrono::milliseconds(500);

// One run of the tool. An object serves a single run, so its text always starts empty.
class ocCommand {
public:
    // `keep`: how much of the text can reach the caller; the tool's output beyond it is dropped.
    explicit ocCommand(std::size_t keep) : _keep(keep) {}
    std::string startForCommand(const std::string &commandLine, bool isWaitExit);

private:
    static bool tool_is_ready(const std::string &path);
    static bool make_pipes(std::optional<process::Pipe> (&pipes)[3]);

    const std::size_t _keep;
    process::Child _task;
    std::string _result;
};

// The tool must exist; a tool without the execute permission gets it (x for all, or 0777 when
// its mode can't be read) and is looked at once more.
bool ocCommand::tool_is_ready(const std::string &path) {
    if (::access(path.c_str(), F_OK) != 0) {
        log_line("File " + path + " was not found!");
        return false;
    }
    if (::access(path.c_str(), X_OK) == 0) return true;
    struct stat info {};
    const mode_t mode = ::stat(path.c_str(), &info) == 0 ? (info.st_mode | 0111) : 0777;
    ::chmod(path.c_str(), mode & 07777);
    if (::access(path.c_str(), X_OK) == 0) return true;
    log_line("File " + path + " is not excutable!");  // kept, misspelt, as callers' logs show it
    return false;
}

// stdin, stdout and stderr in this order, each with a few attempts of its own.
bool ocCommand::make_pipes(std::optional<process::Pipe> (&pipes)[3]) {
    for (auto &pipe : pipes) {
        for (int attempt = 0; attempt < kPipeAttempts && !pipe; ++attempt) {
            pipe = process::make_pipe();
            if (!pipe) log_line("create pipe failed!");
        }
    }
    for (const auto &pipe : pipes) {
        if (!pipe) {
            log_line("end------create pipe failed!");
            return false;
        }
    }
    return true;
}

std::string ocCommand::startForCommand(const std::string &commandLine, bool isWaitExit) {
    const std::string path = GetAdbPath();
    std::vector<std::string> argv{path};
    for (auto &arg : split_command_line(commandLine, path)) argv.push_back(std::move(arg));

    if (!tool_is_ready(path)) return _result;
    std::optional<process::Pipe> pipes[3];
    if (!make_pipes(pipes)) return _result;
    // Nothing is ever written to the child's stdin: it stays open, without data, until the run ends.
    const process::Stdio stdio{&*pipes[0], &*pipes[1], &*pipes[2]};
    if (const int failure = process::spawn(path, argv, stdio, _task); failure != 0) {
        log_line("launch of " + path + " failed: " + std::generic_category().message(failure));
        return _result;
    }

    if (!isWaitExit) {
        // Nothing is collected from a run that doesn't wait: its text is always empty.
        pauses::wait_whole(pauses::no_wait_run());
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

std::string run_tool(const std::string &commandLine, bool isWaitExit, std::size_t keep) {
    std::lock_guard lock(tool_run_mutex);
    ocCommand command(keep);
    return command.startForCommand(commandLine, isWaitExit);
}

void copy_tool_text(std::string_view text, char *output, int32_t size) {
    if (output == nullptr || size < 1) return;
    const auto capacity = static_cast<std::size_t>(size);
    if (text.size() < capacity) {
        std::memcpy(output, text.data(), text.size());
        output[text.size()] = '\0';
    } else {
        std::memcpy(output, text.data(), capacity - 1);
    }
}

bool run_shell_command(const char *serial, const char *command, char *output, bool isWaitExit) {
    const auto line = tool_line(serial, "shell %s", command);
    if (!line) return false;
    char text[kOutputSize] = {};
    run_tool_into(line->c_str(), text, kOutputSize, isWaitExit);
    if (text[0] != '\0') std::memcpy(output, text, std::strlen(text) + 1);
    return true;
}

void run_tool_into(const char *commandLine, char *output, int32_t outputSize, bool isWaitExit) {
    // The copy takes at most outputSize - 1 bytes, and whether there were more: outputSize bytes
    // of the text decide everything it writes.
    const std::size_t keep = output != nullptr && outputSize > 0 ? static_cast<std::size_t>(outputSize) : 0;
    const std::string text = commandLine != nullptr ? run_tool(commandLine, isWaitExit, keep) : std::string();
    copy_tool_text(text, output, outputSize);  // outside the lock
}

}  // namespace wrenlink::adb
