#include "base/platform.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#if defined(__APPLE__)
#include <crt_externs.h>
#include <mach-o/dyld.h>
#include <climits>
#else
extern char **environ;
#endif

#if defined(__GLIBC__)
#if __GLIBC_PREREQ(2, 34)
#define WRENLINK_HAS_SPAWN_CLOSEFROM 1
#endif
#endif
#ifndef WRENLINK_HAS_SPAWN_CLOSEFROM
#define WRENLINK_HAS_SPAWN_CLOSEFROM 0
#endif

namespace wrenlink::platform {

int send_flags() noexcept {
#if defined(MSG_NOSIGNAL)
    return MSG_NOSIGNAL;
#else
    return 0;
#endif
}

int more_follows_flag() noexcept {
#if defined(MSG_MORE)
    return MSG_MORE;
#else
    return 0;
#endif
}

namespace {
[[maybe_unused]] bool set_cloexec(int fd) noexcept {
    const int flags = ::fcntl(fd, F_GETFD);
    return flags >= 0 && ::fcntl(fd, F_SETFD, flags | FD_CLOEXEC) == 0;
}
}  // namespace

int tcp_socket() noexcept {
#if defined(SOCK_CLOEXEC)
    return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
#else
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    const int one = 1;
    if (!set_cloexec(fd) || ::setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &one, sizeof one) != 0) {
        close_descriptor(fd);
        return -1;
    }
    return fd;
#endif
}

bool cloexec_pipe(int fds[2]) noexcept {
#if defined(__linux__)
    return ::pipe2(fds, O_CLOEXEC) == 0;
#else
    if (::pipe(fds) != 0) return false;
    if (!set_cloexec(fds[0]) || !set_cloexec(fds[1])) {
        close_descriptor(fds[0]);
        close_descriptor(fds[1]);
        return false;
    }
    return true;
#endif
}

std::string executable_path() {
#if defined(__APPLE__)
    uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::vector<char> buf(size + 1, '\0');
    if (_NSGetExecutablePath(buf.data(), &size) != 0) return {};
    return std::string(buf.data());
#else
    std::vector<char> buf(256);
    for (;;) {
        const ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size());
        if (n < 0) return {};
        if (static_cast<size_t>(n) < buf.size()) return std::string(buf.data(), static_cast<size_t>(n));
        buf.resize(buf.size() * 2);
    }
#endif
}

char **environment() noexcept {
#if defined(__APPLE__)
    return *_NSGetEnviron();  // a shared library cannot reach `environ` directly there
#else
    return environ;
#endif
}

int spawn_closes_other_descriptors([[maybe_unused]] posix_spawn_file_actions_t *actions,
                                   [[maybe_unused]] short &flags) noexcept {
#if defined(__APPLE__)
    flags = static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT);
    return 0;
#elif WRENLINK_HAS_SPAWN_CLOSEFROM
    return posix_spawn_file_actions_addclosefrom_np(actions, 3);
#else
    return 0;
#endif
}

#if defined(__linux__) && defined(SYS_pidfd_open) && defined(SYS_pidfd_send_signal)
#define WRENLINK_HAS_PIDFD 1
#ifndef P_PIDFD
#define P_PIDFD 3
#endif
#else
#define WRENLINK_HAS_PIDFD 0
#endif

namespace {
// Whether the child is still ours to wait for, running or ended; without reaping it.
bool still_ours(idtype_t type, id_t id) {
    siginfo_t info{};
    return ::waitid(type, id, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}
}  // namespace

ChildHandle child_handle([[maybe_unused]] pid_t pid) {
#if WRENLINK_HAS_PIDFD
    UniqueFd fd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));  // close-on-exec by definition
    if (!fd) return ChildHandle{UniqueFd(), errno == ESRCH};  // ENOSYS before Linux 5.3
    // The pid may have been reaped by the host and taken by another process before the handle
    // was made: only a child of ours can be waited for through it.
    if (still_ours(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(fd.get()))) return ChildHandle{std::move(fd), false};
    if (errno == ECHILD) return ChildHandle{UniqueFd(), true};
    return ChildHandle{};  // waiting through a pidfd needs Linux 5.4: known by its pid alone
#else
    return ChildHandle{};
#endif
}

void signal_child(pid_t pid, int handle, int sig) {
#if WRENLINK_HAS_PIDFD
    if (handle >= 0) {
        ::syscall(SYS_pidfd_send_signal, handle, sig, nullptr, 0);
        return;
    }
#else
    (void)handle;
#endif
    if (still_ours(P_PID, static_cast<id_t>(pid))) ::kill(pid, sig);
}

Reaped reap_child(pid_t pid, [[maybe_unused]] int handle, bool block) {
    for (;;) {
        siginfo_t info{};
        const int options = WEXITED | (block ? 0 : WNOHANG);
#if WRENLINK_HAS_PIDFD
        const int r = handle >= 0 ? ::waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(handle), &info, options)
                                  : ::waitid(P_PID, static_cast<id_t>(pid), &info, options);
#else
        const int r = ::waitid(P_PID, static_cast<id_t>(pid), &info, options);
#endif
        if (r == 0) return info.si_pid != 0 ? Reaped::Yes : Reaped::No;
        if (errno != EINTR) return Reaped::ByOthers;  // ECHILD
    }
}

const char *popen_read_mode() noexcept {
#if defined(__GLIBC__)
    return "re";
#else
    return "r";
#endif
}

}  // namespace wrenlink::platform
