// peer_probe: one client of the reference agent, for the tests of who it serves, on either kind of
// endpoint (tcp:PORT on 127.0.0.1, or localabstract:NAME):
//   peer_probe ENDPOINT ping     sends a ping: 0 when it is answered
//   peer_probe ENDPOINT scan     starts a scan: 0 when the agent takes it
//   peer_probe ENDPOINT events   a scan's event connection: sends the greeting, 0 when the first
//                                event is a found item (the served tree has files, and the
//                                agent could read them)
// 3 when the agent closed the connection without sending a byte; 1 for any other failure.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "agent/wire/packets.h"
#include "base/io.h"
#include "base/unique_fd.h"
#include "base/packet.h"

namespace {

using wrenlink::UniqueFd;

UniqueFd connect_to(std::string_view endpoint) {
    constexpr std::string_view kLocal = "localabstract:", kTcp = "tcp:";
    UniqueFd fd;
    if (endpoint.starts_with(kLocal)) {
        const std::string_view name = endpoint.substr(kLocal.size());
        sockaddr_un at{};
        at.sun_family = AF_UNIX;
        if (name.size() >= sizeof at.sun_path) return {};
        std::memcpy(at.sun_path + 1, name.data(), name.size());
        fd.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
        if (fd && ::connect(fd.get(), reinterpret_cast<const sockaddr *>(&at), size) == 0) return fd;
    } else if (endpoint.starts_with(kTcp)) {
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_port = htons(static_cast<uint16_t>(std::stoul(std::string(endpoint.substr(kTcp.size())))));
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        fd.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (fd && ::connect(fd.get(), reinterpret_cast<const sockaddr *>(&at), sizeof at) == 0) return fd;
    }
    return {};
}

// A refusal: the agent closed at once, which resets a connection whose bytes it left unread.
bool refused(const wrenlink::io::Transfer &t) {
    return t.ending == wrenlink::io::Ending::Closed || errno == ECONNRESET || errno == EPIPE;
}

// Sends the request and reads `got.size()` bytes of answer: 0 when they came, 3 when the agent
// closed the connection without a byte, 1 otherwise.
int exchange(int fd, const std::string &request, std::string &got) {
    const auto sent = wrenlink::io::send_all(fd, request.data(), request.size());
    if (!sent.whole()) return refused(sent) ? 3 : 1;
    const auto received = wrenlink::io::receive_exact(fd, got.data(), got.size());
    if (received.whole()) return 0;
    return received.done == 0 && refused(received) ? 3 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fputs("usage: peer_probe ENDPOINT ping|scan|events\n", stderr);
        return 2;
    }
    const std::string_view what = argv[2];
    UniqueFd fd = connect_to(argv[1]);
    if (!fd) {
        std::perror(argv[1]);
        return 1;
    }
    const timeval limit{10, 0};
    (void)::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    using namespace wrenlink::wire;
    std::string request, reply(kHeaderSize, '\0');
    if (what == "ping") {
        request = make_ping_packet(), reply.resize(4);
    } else if (what == "scan") {
        request = make_start_scan_packet("");
    } else {
        request.assign(4, '\0');  // the greeting
    }
    const int status = exchange(fd.get(), request, reply);
    if (status != 0 || what != "events") return status;
    return decode_header(reply.data()).opcode == op::kEventFoundItem ? 0 : 1;
}
