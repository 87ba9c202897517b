#include "peer_check.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "frame.h"
#include "socket_table.h"

namespace wrenlink::reference_agent {

namespace {

// The whole of a file under /proc; empty when it cannot be read.
std::string read_proc_file(const char *path) {
    std::string text;
    const UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
    if (!fd) return text;
    char chunk[16 * 1024];
    for (;;) {
        const ssize_t n = ::read(fd.get(), chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return text;
        text.append(chunk, static_cast<std::size_t>(n));
    }
}

std::optional<uid_t> tcp_peer_uid(int fd) {
    sockaddr_storage ours{}, theirs{};
    socklen_t ours_size = sizeof ours, theirs_size = sizeof theirs;
    if (::getsockname(fd, reinterpret_cast<sockaddr *>(&ours), &ours_size) != 0 ||
        ::getpeername(fd, reinterpret_cast<sockaddr *>(&theirs), &theirs_size) != 0)
        return std::nullopt;
    const auto local = socket_address(ours), peer = socket_address(theirs);
    if (!local || !peer) return std::nullopt;
    // The peer's socket is the row seen from its side: its local address is our peer's.
    for (const char *table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        if (const auto uid = socket_owner(read_proc_file(table), *peer, *local)) return static_cast<uid_t>(*uid);
    }
    return std::nullopt;
}

}  // namespace

std::optional<uid_t> peer_uid(int fd) {
    sockaddr_storage ours{};
    socklen_t size = sizeof ours;
    if (::getsockname(fd, reinterpret_cast<sockaddr *>(&ours), &size) != 0) return std::nullopt;
    if (ours.ss_family != AF_UNIX) return tcp_peer_uid(fd);
    ucred credentials{};
    socklen_t credentials_size = sizeof credentials;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &credentials_size) != 0) return std::nullopt;
    return credentials.uid;
}

UniqueFd accept_trusted(int listener, const Log &log, const std::string &what) {
    UniqueFd fd = accept_connection(listener);
    if (!fd) return fd;
    const auto uid = peer_uid(fd.get());
    if (uid && (*uid == ::getuid() || *uid == 0)) return fd;
    log.say("refused " + what + (uid ? " from uid " + std::to_string(*uid) : " whose owner is unknown"));
    return {};
}

}  // namespace wrenlink::reference_agent
