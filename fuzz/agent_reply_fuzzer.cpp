// Every reply reader of the agent half against hostile bytes: the ping, the six file operations,
// the path operations, the media list and change, and the scan's control exchange (operations that
// share their request and reply code are played by one of them).
//
// Input: one byte n, then n % 4 + 1 bytes that pick the operations run in a row on one connection,
// then all that the agent sends before it closes. Whatever comes, each operation returns, leaves
// the connection's lock free, reads no more than the buffer it was given (a heap block of exactly
// the count asked for) and leaves nothing behind; what each leaves of its out-parameters on a
// failure is played by the table of reply faults.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Wrenlink/Wrenlink.h"
#include "agent/services/file_exchange.h"
#include "agent/services/files.h"
#include "doubles/media_list.h"
#include "socket_peer.h"

namespace {

void check(bool ok) {
    if (!ok) std::abort();
}

void ping(NetConnection *conn) {
    const int32_t r = TestPing(conn);
    check(r == 0 || (r >= -4 && r <= -2));
}

void open_file(NetConnection *conn) {
    NFCFileRef *ref = reinterpret_cast<NFCFileRef *>(0x1);
    const AgentStatus r = NFCFileRefOpen(conn, "/f", "r", &ref);
    check((r == 0) == (ref != nullptr));
    std::free(ref);
}

void read_file(NetConnection *conn, NFCFileRef &ref) {
    constexpr int32_t kAsked = 64;
    auto buffer = std::make_unique<char[]>(kAsked);
    int32_t length = kAsked;
    const AgentStatus r = NFCFileRefRead(conn, &ref, buffer.get(), &length);
    check(length >= 0 && length <= kAsked && (r == 0 || length == kAsked));
}

void close_file(NetConnection *conn) {
    auto *ref = static_cast<NFCFileRef *>(std::malloc(sizeof(NFCFileRef)));
    *ref = NFCFileRef{7, 0};
    // Past its gate a close releases the handle whatever the agent says; at the gate it keeps it.
    const AgentStatus stopped = wrenlink::agent::nfc::gate(conn);
    if (NFCFileRefClose(conn, ref) == stopped && stopped != 0) std::free(ref);
}

// The media list's records are held against the reader's own fuzzer; here only their release.
void list_media(NetConnection *conn) {
    __MediaBean head{};
    uint32_t count = 0;
    if (NMCListImages(conn, &head, &count) == 0) wrenlink::test::free_media_list(head.next);
}

void run(uint8_t which, NetConnection *conn) {
    NFCFileRef ref{7, 1000};
    int64_t told = 0;
    switch (which % 12) {
    case 0: ping(conn); break;
    case 1: open_file(conn); break;
    case 2: read_file(conn, ref); break;
    case 3: NFCFileRefWrite(conn, &ref, "12345678", 8); break;
    case 4: NFCFileRefTell(conn, &ref, &told); break;
    case 5: NFCFileRefSeek(conn, &ref, 4096, 0); break;
    case 6: close_file(conn); break;
    case 7: NFCFileRefDelete(conn, "/d"); break;
    case 8: list_media(conn); break;
    case 9: NMCAddImage(conn, "img"); break;
    case 10: NDDStopScan(conn); break;
    case 11: NDDEraseFile(conn, "/e"); break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::size_t ops = data[0] % 4 + 1u;
    if (size < 1 + ops) return 0;
    wrenlink::fuzz::SocketPeer peer(data + 1 + ops, size - 1 - ops);
    if (!peer.whole()) return 0;
    for (std::size_t i = 0; i < ops; ++i) {
        run(data[1 + i], peer.conn());
        check(peer.lock_is_free());
    }
    return 0;
}
