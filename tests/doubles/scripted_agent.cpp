#include "doubles/scripted_agent.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "base/io.h"

namespace wrenlink::test {

namespace {

// Exactly n bytes into `into` (what came before the peer closed, when less).
bool read_exact(int fd, std::string &into, std::size_t n) {
    into.resize(n);
    const io::Transfer t = io::receive_exact(fd, into.data(), n);
    into.resize(t.done);
    return t.whole();
}

bool send_all(int fd, std::string_view data) { return io::send_all(fd, data.data(), data.size()).whole(); }

}  // namespace

std::string bytes(const std::string &hexText) {
    std::string digits;
    for (char ch : hexText)
        if (std::isxdigit(static_cast<unsigned char>(ch))) digits += ch;
    if (digits.size() % 2 != 0) throw std::invalid_argument("odd number of hex digits");
    std::string out;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        out.push_back(static_cast<char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return out;
}

std::string hex(const std::string &data) {
    std::string out;
    char buf[4];
    for (unsigned char b : data) {
        std::snprintf(buf, sizeof buf, out.empty() ? "%02x" : " %02x", b);
        out += buf;
    }
    return out;
}

std::string le32(uint32_t v) {
    std::string s(4, '\0');
    wire::store_u32(s.data(), v);
    return s;
}

std::string le64(uint64_t v) {
    std::string s(8, '\0');
    wire::store_u64(s.data(), v);
    return s;
}

std::string header(uint32_t magic, uint32_t length, uint32_t opcode, uint32_t crc, uint32_t status) {
    return wire::packet_as_given({magic, length, opcode, crc, status});
}

std::string reply(uint32_t status, const std::string &payload, std::optional<uint32_t> crc) {
    if (!crc) return wire::packet(0, payload, wire::Crc::OverPayload, status);
    return wire::packet_as_given({wire::kMagic, static_cast<uint32_t>(payload.size()), 0, *crc, status}, payload);
}

std::string event(uint32_t opcode, const std::string &payload, std::optional<uint32_t> length) {
    return wire::packet_as_given({wire::kMagic, length.value_or(static_cast<uint32_t>(payload.size())), opcode, 0, 0},
                                 payload);
}

// ---------------------------------------------------------------------------------------------

bool Link::request(Request &r) {
    std::string head;
    if (!take(wire::kHeaderSize, head)) return false;
    r = Request{wire::decode_header(head.data()), {}};
    return r.header.opcode == wire::op::kPing || take(r.header.length, r.payload);
}

Script &Script::expect(std::string data) {
    steps_.push_back([data](Link &l) {
        std::string got;
        if (l.take(data.size(), got) && got == data) return true;
        l.fail("expected [" + hex(data) + "] got [" + hex(got) + "]");
        return false;
    });
    return *this;
}

Script &Script::expect_request(uint32_t opcode) {
    steps_.push_back([opcode](Link &l) {
        Request r;
        const bool whole = l.request(r);
        if (r.header.opcode != opcode || !whole)
            l.fail("expected a whole request " + std::to_string(opcode) + ", got opcode " +
                   std::to_string(r.header.opcode));
        return whole;
    });
    return *this;
}

Script &Script::send(std::string data) {
    steps_.push_back([data](Link &l) { return send_all(l.fd, data); });
    return *this;
}

Script &Script::send_filler(std::size_t n) {
    steps_.push_back([n](Link &l) {
        const std::string piece(64 * 1024, 'f');
        for (std::size_t left = n; left > 0; left -= std::min(left, piece.size()))
            if (!send_all(l.fd, std::string_view(piece).substr(0, std::min(left, piece.size())))) return false;
        return true;
    });
    return *this;
}

Script &Script::hook(std::function<void()> fn) {
    steps_.push_back([fn](Link &) {
        fn();
        return true;
    });
    return *this;
}

Script &Script::serve(Handler handler) {
    steps_.push_back([handler](Link &l) {
        Request r;
        while (l.request(r)) {
            const auto answer = handler(r);
            if (!answer || !send_all(l.fd, *answer)) break;
        }
        return false;
    });
    return *this;
}

Script &Script::reset() {
    steps_.push_back([](Link &l) { return !(l.abort = true); });
    return *this;
}

// ---------------------------------------------------------------------------------------------

ScriptedAgent::ScriptedAgent(uint16_t port) {
    listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    ::setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (::bind(listen_fd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 || ::listen(listen_fd_, 64) != 0 ||
        ::getsockname(listen_fd_, reinterpret_cast<sockaddr *>(&addr), &len) != 0 || ::pipe2(wake_, O_CLOEXEC) != 0)
        throw std::runtime_error("scripted agent cannot listen on port " + std::to_string(port) + ": " +
                                 std::strerror(errno));
    port_ = ntohs(addr.sin_port);
    acceptor_ = std::thread([this] { accept_loop(); });
}

ScriptedAgent::~ScriptedAgent() {
    (void)!::write(wake_[1], "x", 1);
    acceptor_.join();
    {
        std::lock_guard lock(mutex_);
        for (const int fd : conns_)
            if (fd >= 0) ::shutdown(fd, SHUT_RDWR);
    }
    for (auto &w : workers_) w.join();
    for (const int fd : conns_)
        if (fd >= 0) ::close(fd);
    for (int fd : {listen_fd_, wake_[0], wake_[1]}) ::close(fd);
}

ScriptedAgent &ScriptedAgent::add(Script script) {
    std::lock_guard lock(mutex_);
    scripts_.push_back(std::move(script));
    return *this;
}

void ScriptedAgent::accept_loop() {
    for (;;) {
        pollfd fds[2] = {{listen_fd_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 && errno != EINTR) return;
        if (fds[1].revents != 0) return;
        if ((fds[0].revents & POLLIN) == 0) continue;
        const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        std::lock_guard lock(mutex_);
        const std::size_t index = conns_.size();
        conns_.push_back(fd);
        Script script = scripts_.empty() ? Script() : scripts_[std::min(index, scripts_.size() - 1)];
        workers_.emplace_back([this, index, script] { run(index, script); });
    }
}

void ScriptedAgent::run(std::size_t index, const Script &script) {
    int fd;
    {
        std::lock_guard lock(mutex_);
        fd = conns_[index];
    }
    Link link{fd,
              [fd](std::size_t n, std::string &into) { return read_exact(fd, into, n); },
              [&](const std::string &what) {
                  std::lock_guard lock(mutex_);
                  failures_ += "connection " + std::to_string(index) + ": " + what + "\n";
              }};
    for (const auto &step : script.steps_)
        if (!step(link)) break;
    std::lock_guard lock(mutex_);
    if (link.abort) {  // a close with no lingering sends a reset
        const linger abort{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        ::close(fd);
        conns_[index] = -1;
    } else {
        ::shutdown(fd, SHUT_RDWR);  // an end of stream; closed with the agent
    }
    ++finished_;
    cv_.notify_all();
}

bool ScriptedAgent::wait_finished(std::size_t n, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, limit, [&] { return finished_ >= n; });
}

std::size_t ScriptedAgent::connections() const {
    std::lock_guard lock(mutex_);
    return conns_.size();
}

std::string ScriptedAgent::failures() const {
    std::lock_guard lock(mutex_);
    return failures_;
}

}  // namespace wrenlink::test
