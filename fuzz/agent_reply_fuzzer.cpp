// Every reply reader of the agent half against hostile bytes: the ping, the six file operations,
// the three path operations, the media list and change, and the scan's control exchange.
//
// Input: one byte n, then n % 4 + 1 bytes that pick the operations run in a row on one connection,
// then all that the agent sends before it closes. Whatever comes, each operation returns, leaves
// the connection's lock free and changes its out-parameters only on success, within their bounds
// (the read buffer is a heap block of exactly the count asked for).
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

constexpr int32_t kAsked = 64;
constexpr int64_t kStart = 1000;

void open_file(NetConnection *conn) {
    NFCFileRef *ref = reinterpret_cast<NFCFileRef *>(0x1);
    const AgentStatus r = NFCFileRefOpen(conn, "/f", "r", &ref);
    check((r == 0) == (ref != nullptr));
    if (ref != nullptr) {
        check(ref->position == 0);
        std::free(ref);
    }
}

void read_file(NetConnection *conn) {
    NFCFileRef ref{7, kStart};
    auto buffer = std::make_unique<char[]>(kAsked);
    int32_t length = kAsked;
    const AgentStatus r = NFCFileRefRead(conn, &ref, buffer.get(), &length);
    if (r == 0) {
        check(length >= 0 && length <= kAsked && ref.position == kStart + length);
    } else {
        check(length == kAsked && ref.position == kStart);
    }
}

void write_file(NetConnection *conn) {
    NFCFileRef ref{7, kStart};
    const AgentStatus r = NFCFileRefWrite(conn, &ref, "12345678", 8);
    check(ref.position == (r == 0 ? kStart + 8 : kStart));
}

void tell_file(NetConnection *conn) {
    NFCFileRef ref{7, kStart};
    int64_t told = -5;
    const AgentStatus r = NFCFileRefTell(conn, &ref, &told);
    check(ref.position == kStart && (r == 0 || told == -5));
}

void seek_file(NetConnection *conn) {
    NFCFileRef ref{7, kStart};
    const AgentStatus r = NFCFileRefSeek(conn, &ref, 4096, 0);
    check(r == 0 || ref.position == kStart);
}

void close_file(NetConnection *conn) {
    auto *ref = static_cast<NFCFileRef *>(std::malloc(sizeof(NFCFileRef)));
    *ref = NFCFileRef{7, kStart};
    // Past its gate a close releases the handle whatever the agent says; at the gate it keeps it.
    const bool stopped = wrenlink::agent::nfc::gate(conn) != 0;
    const AgentStatus r = NFCFileRefClose(conn, ref);
    if (stopped) {
        check(r == wrenlink::agent::nfc::gate(conn));
        std::free(ref);
    }
}

void list_media(NetConnection *conn) {
    __MediaBean head{};
    __MediaBean *const untouched = reinterpret_cast<__MediaBean *>(0x1);
    head.next = untouched;
    uint32_t count = 12345;
    const AgentStatus r = NMCListImages(conn, &head, &count);
    if (r != 0) {
        check(head.next == untouched && count == 12345);
        return;
    }
    uint32_t chained = 0;
    __MediaBean *first = head.next == untouched ? nullptr : head.next;
    for (const __MediaBean *b = first; b != nullptr; b = b->next) {
        check(b->text1 != nullptr && b->text2 != nullptr && b->text3 != nullptr);
        ++chained;
    }
    check(chained == count);
    wrenlink::test::free_media_list(first);
}

void run(uint8_t which, NetConnection *conn) {
    switch (which % 15) {
    case 0: {
        const int32_t r = TestPing(conn);
        check(r == 0 || r == -2 || r == -3 || r == -4);
        break;
    }
    case 1: open_file(conn); break;
    case 2: read_file(conn); break;
    case 3: write_file(conn); break;
    case 4: tell_file(conn); break;
    case 5: seek_file(conn); break;
    case 6: close_file(conn); break;
    case 7: NFCFileRefDelete(conn, "/d"); break;
    case 8: NFCFileRefMkDir(conn, "/d"); break;
    case 9: NFCFileRefAccess(conn, "/d"); break;
    case 10: list_media(conn); break;
    case 11: NMCAddImage(conn, "img"); break;
    case 12: NDDStopScan(conn); break;
    case 13: NDDPauseScan(conn); break;
    case 14: NDDEraseFile(conn, "/e"); break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::size_t ops = data[0] % 4 + 1u;
    if (size < 1 + ops) return 0;
    wrenlink::fuzz::SocketPeer peer(data + 1 + ops, size - 1 - ops);
    for (std::size_t i = 0; i < ops; ++i) {
        run(data[1 + i], peer.conn());
        check(peer.lock_is_free());
    }
    return 0;
}
