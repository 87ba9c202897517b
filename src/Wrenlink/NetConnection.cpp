#include "Wrenlink/NetConnection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "Wrenlink/boundary.h"
#include "base/unique_fd.h"
#include "base/platform.h"

namespace {

// Records given to callers live until the process ends: a handle used after its close must fail
// with an error rather than touch freed memory. They stay reachable from here.
class Registry {
public:
    void keep(std::unique_ptr<NetConnection> conn) {
        std::lock_guard lock(mutex_);
        records_.push_back(std::move(conn));
    }

private:
    std::mutex mutex_;
    std::vector<std::unique_ptr<NetConnection>> records_;
};

Registry &registry() {
    static auto *r = new Registry;  // never destroyed: callers may still hold handles at exit
    return *r;
}

void set_option(int fd, int level, int name, int value) noexcept {
    // Results are ignored: a refused size leaves the kernel's own.
    (void)::setsockopt(fd, level, name, &value, sizeof value);
}

std::unique_ptr<NetConnection> open_connection(const char *address, uint32_t port) {
    wrenlink::UniqueFd fd(wrenlink::platform::tcp_socket());
    if (!fd) return nullptr;

    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    if (address == nullptr || ::inet_pton(AF_INET, address, &peer.sin_addr) <= 0) {
        std::perror("inet_pton");
        return nullptr;
    }
    if (::connect(fd.get(), reinterpret_cast<const sockaddr *>(&peer), sizeof peer) != 0) {
        std::perror("connect");
        return nullptr;
    }
    set_option(fd.get(), IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd.get(), SOL_SOCKET, SO_RCVBUF, static_cast<int>(0xA0000000u));
    set_option(fd.get(), SOL_SOCKET, SO_RCVBUF, 0x0A000000);
    set_option(fd.get(), SOL_SOCKET, SO_KEEPALIVE, 1);

    auto conn = std::make_unique<NetConnection>();
    conn->sock = fd.release();
    // inet_pton accepted the text, so it is at most 15 characters.
    std::snprintf(conn->peerAddress, sizeof conn->peerAddress, "%s", address);
    conn->peerPort = static_cast<uint16_t>(port);
    return conn;
}

constexpr uint32_t kClosed = 1u << 31;  // in NetConnection::users, beside the count

// Closes the descriptor that a close left behind, once: whoever comes first takes it.
void close_left(NetConnection *conn) noexcept {
    const int fd = conn->closeLeft.exchange(-1, std::memory_order_acq_rel);
    if (fd >= 0) wrenlink::close_descriptor(fd);
}

// One send or receive loop's hold on the socket: the descriptor, or -1 once the connection is
// closed (the system call then fails with EBADF, as on any closed descriptor).
class SocketUse {
public:
    explicit SocketUse(NetConnection *conn) noexcept : conn_(conn) {
        if ((conn->users.fetch_add(1, std::memory_order_acq_rel) & kClosed) == 0) fd_ = wrenlink::load_field(conn->sock);
    }
    ~SocketUse() {
        if (conn_->users.fetch_sub(1, std::memory_order_acq_rel) - 1 == kClosed) close_left(conn_);
    }
    SocketUse(const SocketUse &) = delete;
    SocketUse &operator=(const SocketUse &) = delete;
    int fd() const noexcept { return fd_; }

private:
    NetConnection *conn_;
    int fd_ = -1;
};

void close_socket(NetConnection *conn) noexcept {
    wrenlink::store_field(conn->fileError, 0);
    wrenlink::store_field(conn->sendError, 0);
    const uint32_t before = conn->users.fetch_or(kClosed, std::memory_order_acq_rel);
    if ((before & kClosed) != 0) return;  // closed already
    const int fd = wrenlink::load_field(conn->sock);
    wrenlink::store_field(conn->sock, -1);
    if (fd < 0) return;
    // Transfers inside end now: a receive sees the end of the stream, a send fails. Nobody can have
    // closed the descriptor yet, since it is handed over only below.
    if ((before & ~kClosed) != 0) ::shutdown(fd, SHUT_RDWR);
    conn->closeLeft.store(fd, std::memory_order_release);
    if ((conn->users.load(std::memory_order_acquire) & ~kClosed) == 0) close_left(conn);
}

}  // namespace

namespace wrenlink {
NetConnection *open_private_connection(const char *address, uint32_t port) {
    return guarded<NetConnection *>(nullptr, [&] { return open_connection(address, port).release(); });
}

void destroy_private_connection(NetConnection *conn) noexcept {
    if (conn == nullptr) return;
    close_socket(conn);
    delete conn;
}
}  // namespace wrenlink

extern "C" {

NetConnection *NetConnectionOpen(const char *address, uint32_t port) {
    return wrenlink::guarded<NetConnection *>(nullptr, [&]() -> NetConnection * {
        auto conn = open_connection(address, port);
        if (!conn) return nullptr;
        NetConnection *handle = conn.get();
        registry().keep(std::move(conn));
        return handle;
    });
}

int32_t NetConnectionSend(NetConnection *conn, const void *data, int32_t length, int32_t flags) {
    if (conn == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (const int stored = wrenlink::load_field(conn->sendError)) {
        errno = stored;
        return -1;
    }
    if (length <= 0) return 0;
    const SocketUse socket(conn);
    const auto *p = static_cast<const char *>(data);
    int32_t sent = 0;
    while (sent < length) {
        const ssize_t n = ::send(socket.fd(), p + sent, static_cast<size_t>(length - sent),
                                 flags | wrenlink::platform::send_flags());
        if (n > 0) {
            sent += static_cast<int32_t>(n);
            continue;
        }
        if (errno == EINTR) continue;
        const int err = errno;
        wrenlink::store_field(conn->sendError, err != 0 ? err : EINVAL);  // 22 stands when the system left no reason
        std::printf("NetConnectionSend:%d/%d(%s)\n", sent, length, std::strerror(err));
        errno = err;
        return sent;
    }
    return sent;
}

int32_t NetConnectionRecv(NetConnection *conn, void *buffer, int32_t length, int32_t flags) {
    if (length <= 0) return 0;
    if (conn == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const SocketUse socket(conn);
    auto *p = static_cast<char *>(buffer);
    int32_t received = 0;
    while (received < length) {
        const ssize_t n = ::recv(socket.fd(), p + received, static_cast<size_t>(length - received), flags);
        if (n > 0) {
            received += static_cast<int32_t>(n);
            continue;
        }
        if (n == 0) {
            // The peer closed before the whole count: report it, so that no caller that returns
            // errno after a failed exchange reports success.
            errno = ECONNRESET;
            return 0;
        }
        return -1;
    }
    return received;
}

int32_t NetConnectionSetTimeout(NetConnection * /*conn*/, int32_t /*milliseconds*/) { return 0; }

// Safe from another thread while an exchange waits on the connection: that exchange ends with an
// error at once.
void NetConnectionClose(NetConnection *conn) {
    if (conn != nullptr) close_socket(conn);
}

void NetConnectionLock(NetConnection *conn) {
    if (conn != nullptr) conn->mutex.lock();
}

void NetConnectionUnlock(NetConnection *conn) {
    if (conn != nullptr) conn->mutex.unlock();
}

}  // extern "C"
