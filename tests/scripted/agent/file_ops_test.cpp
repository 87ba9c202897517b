// Remote files and paths against a scripted agent. These tests look into the connection record
// (its lock and sticky errors) and the handle, which is why they live with the static core.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include "agent/link/connection.h"
#include "agent/services/files.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;

namespace {

constexpr uint32_t kMagic = 0xF0CF9CFCu;
const auto kReset = static_cast<AgentStatus>(ECONNRESET);

NFCFileRef *handle(uint32_t remoteId, int64_t position) {
    auto *ref = static_cast<NFCFileRef *>(std::malloc(sizeof(NFCFileRef)));
    *ref = NFCFileRef{remoteId, position};
    return ref;
}

}  // namespace

// The bytes of each request are in docs/protocol.md; here, what the handle's position makes of
// the requests, and the write's data behind its block.
TEST(FileOps, RequestsAndPositions) {
    const std::string block = " 00 00 00 00 00 00 00 00 07 00 00 00 ";
    ScriptedAgent agent;
    agent.add(Script()
        .expect_request(1).send(reply(0, le32(7) + "rest")).expect_request(5).send(reply(0, le64(10)))
        .expect_request(6).send(reply(0, "ok")).expect_request(5).send(reply(0, le64(4096)))
        .expect(bytes("fc 9c cf f0 10 00 00 00 03 00 00 00" + block + "00 10 00 00 00 00 00 00 05 00 00 00"))
        .send(reply(0, "hello", 0xBADu))  // a read's CRC plays no part
        .expect(bytes("fc 9c cf f0 13 00 00 00 04 00 00 00" + block + "05 10 00 00 00 00 00 00 03 00 00 00 78 79 7a"))
        .send(reply(0))
        .expect(bytes("fc 9c cf f0 10 00 00 00 04 00 00 00" + block + "08 10 00 00 00 00 00 00 00 00 00 00"))
        .send(reply(0))
        .expect_request(2).send(reply(0)).expect_request(7).send(reply(0)).expect_request(13).send(reply(0))
        .expect_request(8).send(reply(3)));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    NFCFileRef *ref = nullptr;
    ASSERT_EQ(NFCFileRefOpen(conn, "/a", "r", &ref), 0u);
    int64_t told = 0;
    EXPECT_EQ(NFCFileRefTell(conn, ref, &told), 0u);
    EXPECT_EQ(told + ref->position, 10);
    EXPECT_EQ(NFCFileRefSeek(conn, ref, 4096, 0), 0u);
    char buffer[5];
    int32_t length = 5;
    EXPECT_EQ(NFCFileRefRead(conn, ref, buffer, &length), 0u);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    EXPECT_EQ(NFCFileRefWrite(conn, ref, "xyz", 3), 0u);
    EXPECT_EQ(NFCFileRefWrite(conn, ref, nullptr, 0), 0u);
    EXPECT_EQ(ref->position, 4104);
    EXPECT_EQ(NFCFileRefClose(conn, ref), 0u);
    EXPECT_EQ(NFCFileRefDelete(conn, "/a") + NFCFileRefMkDir(conn, "/a"), 0u);
    EXPECT_EQ(NFCFileRefAccess(conn, "/a"), 3u);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

TEST(FileOps, ReadsKeepTheStreamInStepAndSeekFallsBackToItsOffset) {
    ScriptedAgent agent;
    agent.add(Script().expect_request(3).send(reply(0, "abc")).expect_request(3).send(reply(0))
                  .expect_request(3).send(reply(4, "refusal")).expect_request(3).send(reply(0, "ten and one"))
                  .expect_request(6).send(reply(0)).expect_request(5).send(reply(3))
                  .expect_request(3).send(reply(0, "ok")));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    NFCFileRef *ref = handle(1, 50);
    char buffer[11] = {};
    int32_t n = 10;
    EXPECT_EQ(NFCFileRefRead(conn, ref, buffer, &n), 0u);
    EXPECT_EQ(n + ref->position, 3 + 53);
    EXPECT_EQ(NFCFileRefRead(conn, ref, buffer, &(n = 10)), 0u);
    EXPECT_EQ(n + ref->position, 0 + 53);
    EXPECT_EQ(NFCFileRefRead(conn, ref, buffer, &(n = 10)), 4u);
    // One byte more than the ten asked for is refused whole, and the stream stays in step.
    EXPECT_EQ(NFCFileRefRead(conn, ref, buffer, &n), static_cast<AgentStatus>(EMSGSIZE));
    EXPECT_EQ(std::string(buffer), "abc");
    EXPECT_EQ(n + ref->position, 10 + 53);
    EXPECT_EQ(NFCFileRefSeek(conn, ref, 555, 2), 0u);
    EXPECT_EQ(ref->position, 555);
    EXPECT_EQ(NFCFileRefRead(conn, ref, buffer, &n), 0u);
    EXPECT_EQ(std::string(buffer, 2), "ok");
    EXPECT_EQ(conn->fileError, 0);
    std::free(ref);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

// Each family stops on its own sticky error only: fileError stops the file operations,
// sendError the scan and media ones (and reaches a file operation through its refused send).
TEST(FileOps, StickyErrorsStopTheirOwnFamily) {
    ScriptedAgent agent;
    agent.add(Script().expect_request(7).send(header(kMagic + 1, 0, 0, 0, 0)).expect_request(105).send(reply(0))
                  .expect_request(202).send(reply(0)).expect_request(204).send(header(kMagic + 1, 0, 0, 0, 0))
                  .expect_request(103));
    agent.add(Script().expect_request(204));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    NFCFileRef *ref = handle(1, 0);
    EXPECT_EQ(NFCFileRefDelete(conn, "/x"), AgentBadMagic);
    EXPECT_EQ(NMCAddImage(conn, "i") + NDDStopScan(conn), 0u);
    EXPECT_EQ(NFCFileRefClose(conn, ref), AgentBadMagic);  // at the gate: nothing sent or freed
    NFCFileRef *opened = ref;
    EXPECT_EQ(NFCFileRefOpen(conn, "/x", "r", &opened), AgentBadMagic);
    EXPECT_EQ(opened, nullptr);
    EXPECT_EQ(NDDPauseScan(conn), AgentBadMagic);
    EXPECT_EQ(NMCDelMusic(conn, "m"), kReset);
    EXPECT_EQ(conn->sendError, 0);  // neither a bad magic nor any media failure sticks there
    std::free(ref);
    NetConnectionClose(conn);

    conn = NetConnectionOpen("127.0.0.1", agent.port());
    EXPECT_EQ(NDDPauseScan(conn), kReset);  // and a stored one: the media requests check it in the same place
    EXPECT_EQ(conn->fileError, 0);
    EXPECT_EQ(NFCFileRefMkDir(conn, "/d"), kReset);
    EXPECT_EQ(conn->fileError, ECONNRESET);
    NetConnectionClose(conn);
    ASSERT_TRUE(agent.wait_finished(2));
    EXPECT_EQ(agent.failures(), "");
}
