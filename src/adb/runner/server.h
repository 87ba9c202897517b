// Care of the adb tool as a whole: stray tool processes, the tool's server, port forwards.
#pragma once

#include <cstdint>

namespace wrenlink::adb {

// Kills (signal 9) every process whose command line holds "adb" (`ps -ax | grep adb`, read once
// before anything is killed), sparing the caller. 0, or 1 when the process list can't be had.
int32_t kill_other_adb();

// `<tool> kill-server`, then `<tool> start-server`.
void restart_server();

// `<tool> -s <serial> forward tcp:<localPort> tcp:<phonePort>`; what the tool says is not looked at.
void forward(const char *serial, uint32_t localPort, uint32_t phonePort);

}  // namespace wrenlink::adb
