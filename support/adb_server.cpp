#include "support/adb_server.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace wrenlink::support {

namespace fs = std::filesystem;

namespace {

// The inodes of the sockets that listen on `port`, from the tables of /proc/net: lines of
// "sl local_address rem_address st ... inode", the address as HEX:PORTHEX, 0A the listen state.
std::set<std::string> listening_sockets(unsigned long port) {
    std::set<std::string> inodes;
    for (const char *table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream in(table);
        std::string line;
        std::getline(in, line);  // the heading
        while (std::getline(in, line)) {
            std::istringstream fields(line);
            std::string slot, local, remote, state, skip, inode;
            fields >> slot >> local >> remote >> state;
            for (int i = 0; i < 5; ++i) fields >> skip;  // queues, timer, retransmits, uid, timeout
            fields >> inode;
            const auto colon = local.rfind(':');
            if (state == "0A" && colon != std::string::npos && std::stoul(local.substr(colon + 1), nullptr, 16) == port)
                inodes.insert("socket:[" + inode + "]");
        }
    }
    return inodes;
}

bool holds_one_of(const fs::path &process, const std::set<std::string> &sockets) {
    std::error_code ec;
    for (const auto &fd : fs::directory_iterator(process / "fd", ec)) {
        const fs::path target = fs::read_symlink(fd.path(), ec);
        if (!ec && sockets.count(target.string()) != 0) return true;
    }
    return false;
}

}  // namespace

void use_private_adb_server(uint16_t port, const std::string &home) {
    ::setenv("ANDROID_ADB_SERVER_PORT", std::to_string(port).c_str(), 1);
    ::setenv("HOME", home.c_str(), 1);
    ::unsetenv("ADB_SERVER_SOCKET");
    ::unsetenv("ANDROID_SERIAL");
}

pid_t adb_server_pid() {
    const char *port = std::getenv("ANDROID_ADB_SERVER_PORT");
    if (port == nullptr) return -1;
    const std::string listen = std::string("tcp:") + port + " ";
    const std::set<std::string> sockets = listening_sockets(std::strtoul(port, nullptr, 10));
    if (sockets.empty()) return -1;
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator("/proc", ec)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::ifstream in(entry.path() / "cmdline");
        std::string line{std::istreambuf_iterator<char>(in), {}};
        std::replace(line.begin(), line.end(), '\0', ' ');
        if (line.find(" fork-server") != std::string::npos && line.find(listen) != std::string::npos &&
            holds_one_of(entry.path(), sockets))
            return static_cast<pid_t>(std::stol(name));
    }
    return -1;
}

}  // namespace wrenlink::support
