// The scan's event loop fed from a socket: the input is all that the agent sends on the event
// connection before it closes. Whatever comes, the loop returns, every found item reaches the
// caller NUL-terminated within the loop's 2048 bytes, and no callback comes without an event
// header of 20 bytes behind it, but for the one that tells of the end.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "agent/services/scan.h"
#include "socket_peer.h"

namespace {

// Each callback counts itself in the std::size_t that the user value points to.
void count(uint64_t user) { ++*reinterpret_cast<std::size_t *>(user); }

void on_item(const char *item, uint64_t user) {
    if (strnlen(item, 2049) > 2048) std::abort();
    count(user);
}
void on_code(uint32_t, uint64_t user) { count(user); }
void on_progress(int64_t, int64_t, uint64_t user) { count(user); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    wrenlink::fuzz::SocketPeer peer(data, size);
    if (!peer.whole()) return 0;
    std::size_t calls = 0;
    wrenlink::agent::ScanArgs args{nullptr, peer.conn(), on_item, on_code, on_progress, reinterpret_cast<uint64_t>(&calls)};
    wrenlink::agent::follow_scan_events(&args);
    if (calls > size / 20 + 1) std::abort();
    return 0;
}
