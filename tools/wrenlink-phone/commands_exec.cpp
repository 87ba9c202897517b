// The launcher of program paths, `wrenlink-exec PATH ARGS` (see program_paths.h): it replaces
// itself with what the path names on the phone, or says what the phone's shell would say.
#include <fcntl.h>
#if defined(__linux__)
#include <sched.h>
#include <sys/mount.h>
#endif
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
    const std::string word = words[0];
    auto argv = argv_of(words);
    ::execv(argv[0], argv.data());
    if (errno == ENOEXEC) {   // no interpreter line: the shell reads it as a script
        words.insert(words.begin(), "sh");
        auto script = argv_of(words);
        ::execv("/bin/sh", script.data());
    }
    return errno == ENOENT ? shell_error(word, "not found", 127)
                           : shell_error(word, std::string("can't execute: ") + std::strerror(errno), 126);
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

bool write_text(const char *path, const std::string &text) {
    wrenlink::UniqueFd fd(::open(path, O_WRONLY | O_CLOEXEC));
    return fd && ::write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

enum class PhoneRoot { entered, unavailable, failed };

// Makes the sandbox this process's "/", as a phone's storage is to its programs: a mount namespace
// of its own (inside a user namespace of its own, mapping only this user, when not root), where
// the host's /dev and /proc are bound into the sandbox and nothing propagates back to the host;
// then chroot. qemu-user's -L maps only paths that exist, so a program could not create files
// without this. `unavailable` (errno set) where the system gives no namespace.
PhoneRoot enter_phone_root(const std::string &root, const std::string &phone_dir) {
#if defined(__linux__)
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    if (::unshare(uid == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0) return PhoneRoot::unavailable;
    if (uid != 0 && !(write_text("/proc/self/setgroups", "deny") &&
                      write_text("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1") &&
                      write_text("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1")))
        return PhoneRoot::failed;
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return PhoneRoot::failed;
    for (const char *dir : {"/dev", "/proc"})
        if (::mount(dir, (root + dir).c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) return PhoneRoot::failed;
    if (::chroot(root.c_str()) != 0 || (::chdir(phone_dir.c_str()) != 0 && ::chdir("/") != 0)) return PhoneRoot::failed;
    return PhoneRoot::entered;
#else
    errno = ENOSYS;
    return PhoneRoot::unavailable;
#endif
}

// A program on the phone's storage: the phone's own commands run as they are, any other ELF
// program under qemu-user with the sandbox as its root.
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
    wrenlink::UniqueFd qemu_file(::open(qemu.c_str(), O_RDONLY | O_CLOEXEC));   // still reachable after the chroot
    if (!qemu_file) return shell_error(word, "can't execute: " + qemu + ": " + std::strerror(errno), 126);
    std::vector<std::string> run = {qemu, "-0", word, phone_path};
    switch (enter_phone_root(c.sandbox.root(), c.sandbox.current_phone_dir())) {
        case PhoneRoot::entered: break;
        case PhoneRoot::unavailable:
            std::fprintf(stderr, "wrenlink-exec: no mount namespace here (%s): %s sees the phone's storage only where "
                                 "its paths exist\n", std::strerror(errno), word.c_str());
            run = {qemu, "-L", c.sandbox.root(), "-0", word, host};
            break;
        case PhoneRoot::failed:
            return shell_error(word, std::string("can't execute: cannot give it the phone's root: ") + std::strerror(errno), 126);
    }
    run.insert(run.end(), words.begin() + 1, words.end());
    auto argv = argv_of(run);
    ::fexecve(qemu_file.get(), argv.data(), environ);
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
