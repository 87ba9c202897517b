// A private adb server for the benchmarks and the soak: every run of the tool, the library's and
// their own, reaches it through ANDROID_ADB_SERVER_PORT in the process's environment, which every
// child inherits; the default server (5037) is never touched.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace wrenlink::support {

// Points this process's tool runs at a server on `port`, with `home` as the home where the tool
// keeps its key. Call before any thread starts.
void use_private_adb_server(uint16_t port, const std::string &home);

// The server process on the private port ("adb -L tcp:PORT fork-server ..."), found in /proc: the
// one that listens there. A server that two tool runs started at once, and that lost the port to
// the other, is never it (it ends by itself). -1 when none listens.
pid_t adb_server_pid();

}  // namespace wrenlink::support
