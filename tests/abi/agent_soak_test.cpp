// Thousands of exchanges of every kind on one connection, through the shared library: the heap and
// the descriptors stay where they were after the first few hundred.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/census.h"
#include "doubles/media_list.h"
#include "doubles/scripted_agent.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizer's own allocator, which stands in for malloc; declared here, as not every compiler
// ships its header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#elif defined(__GLIBC__)
#include <malloc.h>
#endif

using namespace wrenlink::test;

namespace {

// Bytes the heap holds for the process at this moment; 0 where that can't be asked.
std::size_t heap_in_use() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return __sanitizer_get_current_allocated_bytes();
#elif defined(__GLIBC__)
    return mallinfo2().uordblks;
#else
    return 0;
#endif
}

std::string item(const std::string &name) { return media_item(1, name, 2, "/DCIM/" + name, 3, "image/jpeg"); }

// One round: every operation family once, the seek with its tell. Counts what went wrong.
int round_of_exchanges(NetConnection *conn) {
    int wrong = TestPing(conn) == 0 ? 0 : 1;
    __MediaBean head{};
    uint32_t count = 0;
    wrong += NMCListImages(conn, &head, &count) == 0 && count == 2 ? 0 : 1;
    free_media_list(head.next);
    wrong += NMCAddImage(conn, "/DCIM/a.jpg") == 0 ? 0 : 1;
    NFCFileRef *ref = nullptr;
    if (NFCFileRefOpen(conn, "/DCIM/a.jpg", "r+", &ref) != 0) return wrong + 1;
    char buffer[8];
    int32_t length = sizeof buffer;
    wrong += NFCFileRefRead(conn, ref, buffer, &length) == 0 && length == 8 ? 0 : 1;
    wrong += NFCFileRefWrite(conn, ref, buffer, length) == 0 ? 0 : 1;
    int64_t at = 0;
    wrong += NFCFileRefTell(conn, ref, &at) == 0 && at == 16 ? 0 : 1;
    wrong += NFCFileRefSeek(conn, ref, 0, 0) == 0 ? 0 : 1;
    wrong += NFCFileRefClose(conn, ref) == 0 ? 0 : 1;
    wrong += NFCFileRefMkDir(conn, "/DCIM/new") == 0 ? 0 : 1;
    wrong += NDDPauseScan(conn) == 0 ? 0 : 1;
    return wrong;
}

std::optional<std::string> answer(const Request &r) {
    switch (r.header.opcode) {
    case 0: return bytes("00 00 00 01");
    case 104: return reply(0, item("a.jpg") + item("b.jpg"));
    case 1: return reply(0, le32(7));
    case 3: return reply(0, "8 bytes!");
    case 5: return reply(0, le64(16));
    default: return reply(0);
    }
}

}  // namespace

TEST(AgentSoak, ThousandsOfExchangesKeepTheHeapAndTheDescriptors) {
    ScriptedAgent agent;
    agent.add(Script().serve(answer));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    int wrong = 0;
    for (int i = 0; i < 20; ++i) wrong += round_of_exchanges(conn);
    const std::size_t heap = heap_in_use();
    const int descriptors = open_descriptors();
    for (int i = 0; i < 300; ++i) wrong += round_of_exchanges(conn);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(open_descriptors(), descriptors);
    // One allocation kept for each of the 3,600 exchanges would show; the test's own bookkeeping doesn't.
    EXPECT_LT(heap_in_use(), heap + 8 * 1024);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}
