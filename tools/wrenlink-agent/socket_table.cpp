#include "socket_table.h"

#include <netinet/in.h>

#include <charconv>
#include <cstring>
#include <vector>

namespace wrenlink::reference_agent {

namespace {

constexpr std::size_t kUidField = 7;
constexpr std::size_t kInodeField = 9;

std::vector<std::string_view> fields_of(std::string_view line) {
    std::vector<std::string_view> fields;
    std::size_t at = 0;
    while (true) {
        at = line.find_first_not_of(" \t", at);
        if (at == std::string_view::npos) return fields;
        const std::size_t end = std::min(line.find_first_of(" \t", at), line.size());
        fields.push_back(line.substr(at, end - at));
        at = end;
    }
}

template <class T>
bool parse_hex(std::string_view text, T &value) {
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return ec == std::errc() && end == text.data() + text.size() && !text.empty();
}

// The kernel prints an address as 32-bit words in the machine's byte order: each word holds four
// bytes of the address as they lie in memory, so its value put back in memory gives those bytes.
std::optional<SocketAddress> parse_address(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || (colon != 8 && colon != 32)) return std::nullopt;
    SocketAddress a;
    if (!parse_hex(text.substr(colon + 1), a.port)) return std::nullopt;
    const std::size_t words = colon / 8;
    unsigned char *out = words == 1 ? a.ip.data() + 12 : a.ip.data();
    if (words == 1) a.ip[10] = a.ip[11] = 0xff;
    for (std::size_t i = 0; i < words; ++i) {
        uint32_t word = 0;
        if (!parse_hex(text.substr(i * 8, 8), word)) return std::nullopt;
        std::memcpy(out + i * 4, &word, 4);
    }
    return a;
}

}  // namespace

std::optional<SocketAddress> socket_address(const sockaddr_storage &address) {
    SocketAddress a;
    if (address.ss_family == AF_INET) {
        sockaddr_in in{};
        std::memcpy(&in, &address, sizeof in);
        a.ip[10] = a.ip[11] = 0xff;
        std::memcpy(a.ip.data() + 12, &in.sin_addr, 4);
        a.port = ntohs(in.sin_port);
        return a;
    }
    if (address.ss_family == AF_INET6) {
        sockaddr_in6 in6{};
        std::memcpy(&in6, &address, sizeof in6);
        std::memcpy(a.ip.data(), &in6.sin6_addr, 16);
        a.port = ntohs(in6.sin6_port);
        return a;
    }
    return std::nullopt;
}

std::optional<uint32_t> socket_owner(std::string_view table, const SocketAddress &local, const SocketAddress &remote) {
    while (!table.empty()) {
        const std::size_t end = std::min(table.find('\n'), table.size());
        const auto fields = fields_of(table.substr(0, end));
        table.remove_prefix(std::min(end + 1, table.size()));
        if (fields.size() <= kInodeField || parse_address(fields[1]) != local || parse_address(fields[2]) != remote)
            continue;
        uint32_t uid = 0;
        uint64_t inode = 0;
        const auto decimal = [](std::string_view text, auto &value) {
            const auto [at, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
            return ec == std::errc() && at == text.data() + text.size();
        };
        if (decimal(fields[kUidField], uid) && decimal(fields[kInodeField], inode) && inode != 0) return uid;
    }
    return std::nullopt;
}

}  // namespace wrenlink::reference_agent
