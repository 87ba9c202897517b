// Remote files and paths against a scripted agent. These tests look into the connection record
// (its lock and sticky errors) and the handle, which is why they live with the static core.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>

#include "Wrenlink/NetConnection.h"
#include "Wrenlink/file_exchange.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;

namespace {

constexpr uint32_t kMagic = 0xF0CF9CFCu;

NFCFileRef *handle(uint32_t remoteId, int64_t position) {
    auto *ref = static_cast<NFCFileRef *>(std::malloc(sizeof(NFCFileRef)));
    *ref = NFCFileRef{remoteId, position};
    return ref;
}

bool lock_is_free(NetConnection *conn) {
    if (!conn->mutex.try_lock()) return false;
    conn->mutex.unlock();
    return true;
}

}  // namespace

TEST(FileOps, WorkedRequestsAndPositions) {
    ScriptedAgent agent;
    const std::string tell7 = bytes("fc 9c cf f0 04 00 00 00 05 00 00 00 b9 38 d7 9d 00 00 00 00 07 00 00 00");
    agent.add(Script()
                  .expect(bytes("fc 9c cf f0 05 00 00 00 01 00 00 00 c7 33 02 dd 00 00 00 00 2f 61 00 72 00"))
                  .send(reply(0, le32(7) + "rest is ignored"))
                  .expect(tell7).send(reply(0, le64(10)))
                  .expect(bytes("fc 9c cf f0 10 00 00 00 06 00 00 00 be 3c 0f 53 00 00 00 00 07 00 00 00 "
                                "00 10 00 00 00 00 00 00 00 00 00 00"))
                  .send(reply(0, "ok"))
                  .expect(tell7).send(reply(0, le64(4096)))
                  .expect(bytes("fc 9c cf f0 10 00 00 00 03 00 00 00 00 00 00 00 00 00 00 00 07 00 00 00 "
                                "00 10 00 00 00 00 00 00 05 00 00 00"))
                  .send(reply(0, "hello", 0xBADu))  // a read's CRC plays no part
                  .expect(bytes("fc 9c cf f0 13 00 00 00 04 00 00 00 00 00 00 00 00 00 00 00 07 00 00 00 "
                                "05 10 00 00 00 00 00 00 03 00 00 00 78 79 7a"))
                  .send(reply(0))
                  .expect(bytes("fc 9c cf f0 10 00 00 00 04 00 00 00 00 00 00 00 00 00 00 00 07 00 00 00 "
                                "08 10 00 00 00 00 00 00 00 00 00 00"))
                  .send(reply(0))
                  .expect(bytes("fc 9c cf f0 04 00 00 00 02 00 00 00 b9 38 d7 9d 00 00 00 00 07 00 00 00"))
                  .send(reply(0))
                  .expect(bytes("fc 9c cf f0 02 00 00 00 07 00 00 00 a3 69 a9 28 00 00 00 00 2f 61")).send(reply(0))
                  .expect(bytes("fc 9c cf f0 03 00 00 00 0d 00 00 00 3b 5b f7 4f 00 00 00 00 2f 61 00")).send(reply(0))
                  .expect(bytes("fc 9c cf f0 03 00 00 00 08 00 00 00 3b 5b f7 4f 00 00 00 00 2f 61 00")).send(reply(3)));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    NFCFileRef *ref = nullptr;
    ASSERT_EQ(NFCFileRefOpen(conn, "/a", "r", &ref), 0u);
    EXPECT_EQ(ref->remoteId, 7u);
    int64_t told = 0;
    EXPECT_EQ(NFCFileRefTell(conn, ref, &told), 0u);
    EXPECT_EQ(told, 10);
    EXPECT_EQ(ref->position, 0);
    EXPECT_EQ(NFCFileRefSeek(conn, ref, 4096, 0), 0u);
    EXPECT_EQ(ref->position, 4096);
    char buffer[5];
    int32_t length = 5;
    EXPECT_EQ(NFCFileRefRead(conn, ref, buffer, &length), 0u);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    EXPECT_EQ(ref->position, 4101);
    EXPECT_EQ(NFCFileRefWrite(conn, ref, "xyz", 3), 0u);
    EXPECT_EQ(NFCFileRefWrite(conn, ref, nullptr, 0), 0u);
    EXPECT_EQ(ref->position, 4104);
    EXPECT_EQ(NFCFileRefClose(conn, ref), 0u);
    EXPECT_EQ(NFCFileRefDelete(conn, "/a"), 0u);
    EXPECT_EQ(NFCFileRefMkDir(conn, "/a"), 0u);
    EXPECT_EQ(NFCFileRefAccess(conn, "/a"), 3u);
    EXPECT_EQ(conn->fileError, 0);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

// Every exit past the gate of every operation: what it returns, what it leaves in fileError,
// that the lock is free again and that the handle's position has not moved.
TEST(FileOps, ExitsAndTheStickyErrorTheyLeave) {
    enum Reads { Header, Payload, PayloadWithCrc };
    struct Op {
        const char *name;
        uint32_t opcode;
        Reads reads;
        std::function<AgentStatus(NetConnection *, NFCFileRef *)> run;
    };
    char buffer[16];
    const Op ops[] = {
        {"open", 1, PayloadWithCrc, [](NetConnection *c, NFCFileRef *) {
             NFCFileRef *opened = reinterpret_cast<NFCFileRef *>(0x1);
             const AgentStatus r = NFCFileRefOpen(c, "/f", "w", &opened);
             EXPECT_EQ(opened, nullptr);
             return r;
         }},
        {"read", 3, Payload, [&](NetConnection *c, NFCFileRef *f) {
             int32_t n = 16;
             const AgentStatus r = NFCFileRefRead(c, f, buffer, &n);
             EXPECT_EQ(n, 16);
             return r;
         }},
        {"write", 4, Header, [](NetConnection *c, NFCFileRef *f) { return NFCFileRefWrite(c, f, "data", 4); }},
        {"tell", 5, PayloadWithCrc, [](NetConnection *c, NFCFileRef *f) {
             int64_t at = -1;
             const AgentStatus r = NFCFileRefTell(c, f, &at);
             EXPECT_EQ(at, -1);
             return r;
         }},
        {"seek", 6, PayloadWithCrc, [](NetConnection *c, NFCFileRef *f) { return NFCFileRefSeek(c, f, 9, 1); }},
        {"close", 2, Header, [](NetConnection *c, NFCFileRef *f) { return NFCFileRefClose(c, f); }},
        {"delete", 7, Header, [](NetConnection *c, NFCFileRef *) { return NFCFileRefDelete(c, "/f"); }},
        {"mkdir", 13, Header, [](NetConnection *c, NFCFileRef *) { return NFCFileRefMkDir(c, "/f"); }},
        {"access", 8, Header, [](NetConnection *c, NFCFileRef *) { return NFCFileRefAccess(c, "/f"); }},
    };
    struct Exit {
        const char *name;
        std::string reply;
        AgentStatus result;
        int sticky;
        Reads needs;
        bool refusal = false;
    };
    const Exit exits[] = {
        {"short header", bytes("fc 9c cf"), ECONNRESET, ECONNRESET, Header},
        {"bad magic", header(kMagic + 1, 0, 0, 0, 0), AgentBadMagic, static_cast<int>(AgentBadMagic), Header},
        {"refused", reply(9), 9, 0, Header},
        {"short payload", header(kMagic, 8, 0, 0, 0) + "abc", AgentShortPayload, static_cast<int>(AgentShortPayload),
         Payload},
        {"bad crc", reply(0, le64(1), 0x1234u), AgentBadCrc, static_cast<int>(AgentBadCrc), PayloadWithCrc},
        // The CRC is tested before the status.
        {"refused, bad crc", reply(9, le64(1), 0x1234u), AgentBadCrc, static_cast<int>(AgentBadCrc), PayloadWithCrc,
         true},
    };
    for (const Op &op : ops) {
        for (const Exit &exit : exits) {
            if (exit.needs > op.reads) continue;
            if (op.opcode == 1 && exit.refusal) continue;  // an open's refusal carries no payload
            SCOPED_TRACE(std::string(op.name) + ", " + exit.name);
            ScriptedAgent agent;
            agent.add(Script().expect_request(op.opcode).send(exit.reply));
            NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
            ASSERT_NE(conn, nullptr);
            NFCFileRef *ref = handle(7, 100);
            const bool isWriteHeader = op.opcode == 4 && exit.result == ECONNRESET;
            EXPECT_EQ(op.run(conn, ref), isWriteHeader ? AgentShortPayload : exit.result);
            EXPECT_EQ(conn->fileError, op.opcode == 1 ? 0 : exit.sticky);
            EXPECT_TRUE(lock_is_free(conn));
            if (op.opcode != 2) {
                EXPECT_EQ(ref->position, 100);
                std::free(ref);
            }
            NetConnectionClose(conn);
            EXPECT_EQ(agent.failures(), "");
        }
    }
}

TEST(FileOps, ReadsKeepTheStreamInStep) {
    ScriptedAgent agent;
    agent.add(Script()
                  .expect_request(3).send(reply(0, "abc"))
                  .expect_request(3).send(reply(0))
                  .expect_request(3).send(reply(4, "refusal"))
                  .expect_request(3).send(reply(0, "twelve bytes"))
                  .expect_request(3).send(reply(0, "ok")));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    NFCFileRef *ref = handle(1, 50);
    char buffer[10] = {};
    auto read = [&](int32_t &n) { return NFCFileRefRead(conn, ref, buffer, &n); };
    int32_t n = 10;
    EXPECT_EQ(read(n), 0u);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(std::string(buffer), "abc");
    EXPECT_EQ(ref->position, 53);
    n = 10;
    EXPECT_EQ(read(n), 0u);
    EXPECT_EQ(n, 0);
    n = 10;
    EXPECT_EQ(read(n), 4u);
    EXPECT_EQ(read(n), static_cast<AgentStatus>(EMSGSIZE));
    EXPECT_EQ(n, 10);
    EXPECT_EQ(std::string(buffer), "abc");
    EXPECT_EQ(ref->position, 53);
    EXPECT_EQ(read(n), 0u);
    EXPECT_EQ(std::string(buffer, 2), "ok");
    EXPECT_EQ(conn->fileError, 0);
    std::free(ref);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

TEST(FileOps, SeekFallsBackToItsOffsetWhenTheTellFails) {
    ScriptedAgent agent;
    agent.add(Script().expect_request(6).send(reply(0)).expect_request(5).send(reply(3)));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    NFCFileRef *ref = handle(1, 50);
    EXPECT_EQ(NFCFileRefSeek(conn, ref, 555, 2), 0u);
    EXPECT_EQ(ref->position, 555);
    std::free(ref);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

// Each family stops on its own sticky error only: fileError stops the file operations,
// sendError the scan and media ones (and reaches a file operation through its refused send).
TEST(FileOps, StickyErrorsStopTheirOwnFamily) {
    ScriptedAgent agent;
    agent.add(Script().expect_request(7).send(header(kMagic + 1, 0, 0, 0, 0))
                  .expect_request(105).send(reply(0))
                  .expect_request(202).send(reply(0))
                  .expect_request(204).send(header(kMagic + 1, 0, 0, 0, 0))
                  .expect_request(103).close());
    agent.add(Script().expect_request(204).close());
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    NFCFileRef *ref = handle(1, 0);
    EXPECT_EQ(NFCFileRefDelete(conn, "/x"), AgentBadMagic);
    EXPECT_EQ(NMCAddImage(conn, "i"), 0u);
    EXPECT_EQ(NDDStopScan(conn), 0u);
    EXPECT_EQ(NFCFileRefClose(conn, ref), AgentBadMagic);  // at the gate: nothing sent or freed
    NFCFileRef *opened = ref;
    EXPECT_EQ(NFCFileRefOpen(conn, "/x", "r", &opened), AgentBadMagic);
    EXPECT_EQ(opened, nullptr);
    EXPECT_EQ(NDDPauseScan(conn), AgentBadMagic);
    EXPECT_EQ(NMCDelMusic(conn, "m"), static_cast<AgentStatus>(ECONNRESET));
    EXPECT_EQ(conn->sendError, 0);  // neither a bad magic nor any media failure sticks there
    std::free(ref);
    NetConnectionClose(conn);

    conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    EXPECT_EQ(NDDPauseScan(conn), static_cast<AgentStatus>(ECONNRESET));
    EXPECT_EQ(conn->sendError, ECONNRESET);
    EXPECT_EQ(NMCAddMusic(conn, "m"), static_cast<AgentStatus>(ECONNRESET));
    EXPECT_EQ(NDDEraseFile(conn, "f"), static_cast<AgentStatus>(ECONNRESET));
    EXPECT_EQ(conn->fileError, 0);
    EXPECT_EQ(NFCFileRefMkDir(conn, "/d"), static_cast<AgentStatus>(ECONNRESET));
    EXPECT_EQ(conn->fileError, ECONNRESET);
    NetConnectionClose(conn);
    ASSERT_TRUE(agent.wait_finished(2));
    EXPECT_EQ(agent.received(0).size(), 22u + 21u + 20u + 20u + 21u);  // nothing after the gates closed
    EXPECT_EQ(agent.received(1).size(), 20u);
    EXPECT_EQ(agent.failures(), "");
}
