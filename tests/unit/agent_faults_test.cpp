// A hostile agent against every operation of the agent half: each reply cut at every byte before
// the agent closes, a wrong magic, and payload lengths of 0, 1, 0x7FFFFFFF, 0x80000000 and
// 0xFFFFFFFF. Each gives the code the design names and the sticky error it names, leaves the lock
// free and returns although the agent has closed (LeakSanitizer watches what was allocated).
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "agent/link/connection.h"
#include "agent/services/files.h"
#include "doubles/media_list.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;

namespace {

constexpr uint32_t kMagic = 0xF0CF9CFCu;
constexpr auto kReset = static_cast<AgentStatus>(ECONNRESET);
constexpr AgentStatus kShort = AgentShortPayload;
constexpr AgentStatus kClean = 0;

std::string item() { return media_item(1, "a.jpg", 2, "/a.jpg", 3, ""); }

NFCFileRef *handle() {
    auto *ref = static_cast<NFCFileRef *>(std::malloc(sizeof(NFCFileRef)));
    *ref = NFCFileRef{7, 0};
    return ref;
}

using Run = std::function<AgentStatus(NetConnection *)>;

Run file_op(std::function<AgentStatus(NetConnection *, NFCFileRef *)> fn, bool releases = false) {
    return [fn, releases](NetConnection *c) {
        NFCFileRef *ref = handle();
        const bool stopped = c->fileError != 0;
        const AgentStatus r = fn(c, ref);
        if (!releases || stopped) std::free(ref);
        return r;
    };
}

Run list_op(AgentStatus (*list)(NetConnection *, __MediaBean *, uint32_t *)) {
    return [list](NetConnection *c) {
        __MediaBean head{};
        uint32_t count = 0;
        const AgentStatus r = list(c, &head, &count);
        free_media_list(head.next);
        return r;
    };
}

Run text_op(AgentStatus (*op)(NetConnection *, const char *)) {
    return [op](NetConnection *c) { return op(c, "/x"); };
}

enum class Field { None, File, Send };
int sticky(const NetConnection *c, Field f) {
    return f == Field::File ? c->fileError : f == Field::Send ? c->sendError : 0;
}

struct Op {
    const char *name;
    uint32_t opcode;
    std::string reply;     // the whole answer of an agent that means well
    AgentStatus cutHeader; // what a cut inside the reply header gives
    Field field;           // the sticky error the operation writes, if any
    Run run;
    // What a reply with `status` 0 and each of the lengths 0, 1, 0x7FFFFFFF, 0x80000000 and
    // 0xFFFFFFFF gives; empty: the operation doesn't get such replies here.
    std::vector<AgentStatus> lengths;
};

const std::vector<uint32_t> kLengths = {0, 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};

std::vector<Op> operations() {
    const std::vector<AgentStatus> headerOnly(5, kClean);  // `length` is never read
    auto read16 = [](NetConnection *c, NFCFileRef *f) {
        char buffer[16];
        int32_t n = sizeof buffer;
        return NFCFileRefRead(c, f, buffer, &n);
    };
    auto tell = [](NetConnection *c, NFCFileRef *f) {
        int64_t at = 0;
        return NFCFileRefTell(c, f, &at);
    };
    auto open = [](NetConnection *c) {
        NFCFileRef *ref = nullptr;
        const AgentStatus r = NFCFileRefOpen(c, "/f", "r", &ref);
        std::free(ref);
        return r;
    };
    return {
        {"open", 1, reply(0, le32(7)), kReset, Field::None, open, {kShort, kShort, kShort, kShort, kShort}},
        {"read", 3, reply(0, "hello"), kReset, Field::File, file_op(read16), {kClean, kClean, kShort, kShort, kShort}},
        {"write", 4, reply(0), kShort, Field::File,
         file_op([](NetConnection *c, NFCFileRef *f) { return NFCFileRefWrite(c, f, "data", 4); }), headerOnly},
        {"tell", 5, reply(0, le64(10)), kReset, Field::File, file_op(tell), {kShort, kShort, kShort, kShort, kShort}},
        // A seek that the agent accepts is followed by a tell, whose failure still leaves 0.
        {"seek", 6, reply(0, "ok"), kReset, Field::File,
         file_op([](NetConnection *c, NFCFileRef *f) { return NFCFileRefSeek(c, f, 9, 0); }),
         {kClean, kClean, kShort, kShort, kShort}},
        {"close", 2, reply(0), kReset, Field::File, file_op(NFCFileRefClose, true), headerOnly},
        {"delete", 7, reply(0), kReset, Field::File, text_op(NFCFileRefDelete), headerOnly},
        {"mkdir", 13, reply(0), kReset, Field::File, text_op(NFCFileRefMkDir), headerOnly},
        {"access", 8, reply(0), kReset, Field::File, text_op(NFCFileRefAccess), headerOnly},
        {"list images", 104, reply(0, item()), kReset, Field::None, list_op(NMCListImages),
         {kClean, kShort, kShort, kShort, kShort}},
        {"list music", 101, reply(0, item()), kReset, Field::None, list_op(NMCListMusics), {}},
        {"list videos", 107, reply(0, item()), kReset, Field::None, list_op(NMCListVideo), {}},
        {"add image", 105, reply(0), kReset, Field::None, text_op(NMCAddImage), headerOnly},
        {"del image", 106, reply(0), kReset, Field::None, text_op(NMCDelImage), {}},
        {"add music", 102, reply(0), kReset, Field::None, text_op(NMCAddMusic), {}},
        {"del music", 103, reply(0), kReset, Field::None, text_op(NMCDelMusic), {}},
        {"add video", 108, reply(0), kReset, Field::None, text_op(NMCAddIVideo), {}},
        {"del video", 109, reply(0), kReset, Field::None, text_op(NMCDelIVideo), {}},
        // A start that the agent accepts would scan; only its failures are played here.
        {"start scan", 201, reply(0), kReset, Field::Send,
         [](NetConnection *c) { return NDDStartScan(c, nullptr, nullptr, nullptr, nullptr, 0); }, {}},
        {"stop scan", 202, reply(0), kReset, Field::Send, NDDStopScan, headerOnly},
        {"pause scan", 204, reply(0), kReset, Field::Send, NDDPauseScan, {}},
        {"resume scan", 203, reply(0), kReset, Field::Send, NDDResumeScan, {}},
        {"erase file", 208, reply(0), kReset, Field::Send, text_op(NDDEraseFile), {}},
    };
}

bool lock_is_free(NetConnection *conn) {
    if (!conn->mutex.try_lock()) return false;
    conn->mutex.unlock();
    return true;
}

// One exchange against an agent that reads the request, sends `answer` and closes.
struct Outcome {
    AgentStatus result;
    int sticky;
};
Outcome play(ScriptedAgent &agent, const Op &op, const std::string &answer) {
    agent.add(Script().expect_request(op.opcode).send(answer));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    const AgentStatus result = op.run(conn);
    EXPECT_TRUE(lock_is_free(conn));
    const Outcome outcome{result, sticky(conn, op.field)};
    NetConnectionClose(conn);
    return outcome;
}

}  // namespace

TEST(AgentFaults, EveryReplyCutAtEveryByte) {
    for (const Op &op : operations()) {
        SCOPED_TRACE(op.name);
        ScriptedAgent agent;
        for (std::size_t cut = 0; cut < op.reply.size(); ++cut) {
            const Outcome got = play(agent, op, op.reply.substr(0, cut));
            const AgentStatus expected = cut < 20 ? op.cutHeader : kShort;
            EXPECT_EQ(got.result, expected) << "cut at " << cut;
            // A failed transfer sticks as errno, a short payload as its code.
            EXPECT_EQ(got.sticky, op.field == Field::None ? 0 : cut < 20 ? ECONNRESET : static_cast<int>(kShort))
                << "cut at " << cut;
        }
        EXPECT_EQ(agent.failures(), "");
    }
}

TEST(AgentFaults, WrongMagicAndPayloadLengths) {
    for (const Op &op : operations()) {
        SCOPED_TRACE(op.name);
        ScriptedAgent agent;
        const std::string wrongMagic = header(kMagic ^ 1u, 0, 0, 0, 0);
        const Outcome got = play(agent, op, wrongMagic);
        EXPECT_EQ(got.result, AgentBadMagic);
        // Only the file family stops on a bad magic; the open never stores anything.
        EXPECT_EQ(got.sticky, op.field == Field::File ? static_cast<int>(AgentBadMagic) : 0);
        for (std::size_t i = 0; i < op.lengths.size(); ++i) {
            // What arrives: the header, then at most one byte of payload (with its CRC).
            std::string answer = reply(0, kLengths[i] == 0 ? "" : "x");
            answer.replace(4, 4, le32(kLengths[i]));
            EXPECT_EQ(play(agent, op, answer).result, op.lengths[i]) << "length " << kLengths[i];
        }
        EXPECT_EQ(agent.failures(), "");
    }
}
