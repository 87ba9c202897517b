// A connection record whose agent is the other end of a socketpair: the agent sends the fuzzer's
// bytes and then closes its sending side, so any read past them ends the stream as a closing
// agent would. What the library sends piles up unread on the agent's side.
//
// The whole input lies in the socket before the library reads (the agent's send buffer is sized
// to hold it), so no read ever waits. A read that waited could be interrupted by a signal, and the
// library's receive fails with EINTR then, as it must: libFuzzer's -timeout fires SIGALRM every
// few seconds, and an oracle would take that failure for a wrong answer.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "agent/link/connection.h"

namespace wrenlink::fuzz {

class SocketPeer {
public:
    SocketPeer(const uint8_t *data, std::size_t size) {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) std::abort();
        conn_ = new NetConnection;
        conn_->sock = fds[0];
        agent_ = fds[1];
        make_room(agent_, size);
        whole_ = send_now(agent_, data, size);
        ::shutdown(agent_, SHUT_WR);
    }
    ~SocketPeer() {
        agent::destroy_private_connection(conn_);
        ::close(agent_);
    }
    SocketPeer(const SocketPeer &) = delete;
    SocketPeer &operator=(const SocketPeer &) = delete;

    NetConnection *conn() const { return conn_; }

    // Whether the whole input went into the socket. The system caps a socket's buffer
    // (net.core.wmem_max; root may pass it), at 400 KiB or more on Linux: a target passes over an
    // input larger than that rather than let the library's reads wait.
    bool whole() const { return whole_; }

    // Whether the connection's lock is free: every exit of an exchange must release it.
    bool lock_is_free() const {
        if (!conn_->mutex.try_lock()) return false;
        conn_->mutex.unlock();
        return true;
    }

private:
    // Linux doubles what it is asked for, and the doubled room holds at least `size` bytes of
    // data with the system's own bookkeeping.
    static void make_room(int fd, std::size_t size) {
        const int room = size < INT_MAX / 2 ? static_cast<int>(size) : INT_MAX / 2;
#ifdef SO_SNDBUFFORCE
        if (::setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) == 0) return;
#endif
        (void)::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    }

    // Sends without waiting; false when the socket could not take it all.
    static bool send_now(int fd, const uint8_t *data, std::size_t size) {
        while (size > 0) {
            const ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return false;
            data += n;
            size -= static_cast<std::size_t>(n);
        }
        return true;
    }

    NetConnection *conn_ = nullptr;
    int agent_ = -1;
    bool whole_ = false;
};

}  // namespace wrenlink::fuzz
