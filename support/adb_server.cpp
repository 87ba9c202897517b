#include "support/adb_server.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace wrenlink::support {

namespace fs = std::filesystem;

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
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator("/proc", ec)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::ifstream in(entry.path() / "cmdline");
        std::string line{std::istreambuf_iterator<char>(in), {}};
        std::replace(line.begin(), line.end(), '\0', ' ');
        if (line.find(" fork-server") != std::string::npos && line.find(listen) != std::string::npos)
            return static_cast<pid_t>(std::stol(name));
    }
    return -1;
}

}  // namespace wrenlink::support
