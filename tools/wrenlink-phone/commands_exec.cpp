// The launcher of program paths, `wrenlink-exec PATH ARGS` (see program_paths.h): it replaces
// itself with what the path names on the phone, or says what the phone's shell would say.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/platform.h"
#include "base/unique_fd.h"
#include "commands.h"
#include "program_paths.h"
#include "sandbox.h"

namespace phone {

namespace {

// "/system/bin/sh: WORD: WHAT", as the phone's shell says it, and the status it gives.
int shell_error(const std::string &word, const std::string &what, int status) {
    std::fprintf(stderr, "/system/bin/sh: %s: %s\n", word.c_str(), what.c_str());
    return status;
}

std::vector<char *> argv_of(std::vector<std::string> &words) {
    std::vector<char *> argv;
    for (auto &w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    return argv;
}

// A path that is not on the phone's storage runs as the host's shell would run it.
int run_host_program(std::vector<std::string> words) {
    auto argv = argv_of(words);
    ::execv(argv[0], argv.data());
    if (errno == ENOEXEC) {   // no interpreter line: the shell reads it as a script
        words.insert(words.begin(), "sh");
        auto script = argv_of(words);
        ::execv("/bin/sh", script.data());
    }
    return errno == ENOENT ? shell_error(words[0], "not found", 127)
                           : shell_error(words[0], std::string("can't execute: ") + std::strerror(errno), 126);
}

// The first directory of the host's PATH that holds an executable `name`.
std::string find_on_path(const std::string &name) {
    const char *path = std::getenv("PATH");
    std::string_view dirs = path ? path : "/usr/bin:/bin";
    while (!dirs.empty()) {
        const auto colon = dirs.find(':');
        const std::string candidate = std::string(dirs.substr(0, colon)) + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
        dirs = colon == std::string_view::npos ? std::string_view{} : dirs.substr(colon + 1);
    }
    return {};
}

std::string real_path(const std::string &path) {
    char resolved[PATH_MAX];
    return ::realpath(path.c_str(), resolved) ? std::string(resolved) : std::string();
}

std::string read_header(const std::string &host) {
    char bytes[20] = {};
    wrenlink::UniqueFd fd(::open(host.c_str(), O_RDONLY | O_CLOEXEC));
    const ssize_t n = fd ? ::read(fd.get(), bytes, sizeof bytes) : -1;
    return n == static_cast<ssize_t>(sizeof bytes) ? std::string(bytes, sizeof bytes) : std::string();
}

// A program on the phone's storage: the phone's own commands run as they are, any other ELF
// program under qemu-user with the sandbox as the root of its absolute paths.
int run_phone_program(const CommandContext &c, const std::string &phone_path, const std::string &host,
                      const struct stat &st, std::vector<std::string> words) {
    const std::string word = words[0];
    if (S_ISDIR(st.st_mode)) return shell_error(word, "can't execute: Is a directory", 126);
    if (!c.sandbox.may_read(phone_path, c.root) || (st.st_mode & 0111) == 0)
        return shell_error(word, "can't execute: Permission denied", 126);
    if (real_path(host) == real_path(wrenlink::platform::executable_path())) {
        auto argv = argv_of(words);
        ::execv(host.c_str(), argv.data());
        return shell_error(word, std::string("can't execute: ") + std::strerror(errno), 126);
    }
    const std::string emulator = emulator_for(read_header(host));
    if (emulator.empty()) return shell_error(word, "can't execute: Exec format error", 126);
    const std::string qemu = find_on_path(emulator);
    if (qemu.empty()) return shell_error(word, "can't execute: Exec format error (" + emulator + " is not installed here)", 126);
    std::vector<std::string> run = {qemu, "-L", c.sandbox.root(), "-0", word, host};
    run.insert(run.end(), words.begin() + 1, words.end());
    auto argv = argv_of(run);
    ::execv(qemu.c_str(), argv.data());
    return shell_error(word, "can't execute: " + qemu + ": " + std::strerror(errno), 126);
}

}  // namespace

std::string launcher_path(const Sandbox &sandbox) { return sandbox.host_path(std::string("/system/bin/") + kLauncherName); }

int command_exec(CommandContext &c) {
    if (c.args.empty()) return c.fail("needs a program path");
    const auto phone_path = c.sandbox.phone_path_of(c.args[0]);
    const std::string host = phone_path ? c.sandbox.host_path(*phone_path) : std::string();
    struct stat st {};
    if (host.empty() || ::stat(host.c_str(), &st) != 0) return run_host_program(c.args);
    return run_phone_program(c, *phone_path, host, st, c.args);
}

}  // namespace phone
