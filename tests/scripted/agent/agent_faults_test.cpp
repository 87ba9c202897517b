// A hostile agent against every way through the agent half (the lists, the media changes, the path
// operations and the scan's requests, its start and the erase among them, each share their request
// and reply code, so one of each stands for the rest): each reply cut at every byte before
// the agent closes, a wrong magic, a refusal, a wrong CRC, and payload lengths of 0, 1, 0x7FFFFFFF,
// 0x80000000 and 0xFFFFFFFF. Each gives the code the design names and the sticky error it names,
// leaves the lock free, the handle's position and the out-parameters alone, and returns although
// the agent has closed (LeakSanitizer watches what was allocated).
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

constexpr auto kReset = static_cast<AgentStatus>(ECONNRESET);
constexpr AgentStatus kShort = AgentShortPayload;
constexpr AgentStatus kClean = 0;
constexpr AgentStatus kMeddled = 0xBADu;  // a failed call changed what it must leave alone

using Run = std::function<AgentStatus(NetConnection *)>;

// A file operation on a handle at position 100; a failure must leave the position there.
Run file_op(std::function<AgentStatus(NetConnection *, NFCFileRef *)> fn, bool releases = false) {
    return [fn, releases](NetConnection *c) {
        auto *ref = static_cast<NFCFileRef *>(std::malloc(sizeof(NFCFileRef)));
        *ref = NFCFileRef{7, 100};
        const bool stopped = c->fileError != 0;
        AgentStatus r = fn(c, ref);
        if (!releases || stopped) {
            if (r != 0 && ref->position != 100) r = kMeddled;
            std::free(ref);
        }
        return r;
    };
}

Run list_op(AgentStatus (*list)(NetConnection *, __MediaBean *, uint32_t *)) {
    return [list](NetConnection *c) {
        __MediaBean *const untouched = reinterpret_cast<__MediaBean *>(0x1);
        __MediaBean head{};
        head.next = untouched;
        uint32_t count = 77;
        const AgentStatus r = list(c, &head, &count);
        __MediaBean *const attached = head.next;  // packed: read by value
        if (attached != untouched) free_media_list(attached);
        return r != 0 && (attached != untouched || count != 77) ? kMeddled : r;
    };
}

Run text_op(AgentStatus (*op)(NetConnection *, const char *)) {
    return [op](NetConnection *c) { return op(c, "/x"); };
}

// The sticky error an operation writes: none, fileError, sendError; or fileError, never written.
enum class Field { None, File, Send, FileNever };
int sticky(const NetConnection *c, Field f) {
    return f == Field::Send ? c->sendError : f == Field::None ? 0 : c->fileError;
}
int stored(Field f, int error) { return f == Field::File || f == Field::Send ? error : 0; }
int file_stored(Field f, int error) { return f == Field::File ? error : 0; }

struct Op {
    const char *name;
    uint32_t opcode;
    std::string reply;      // the whole answer of an agent that means well
    AgentStatus cutHeader;  // what a cut inside the reply header gives
    Field field;
    Run run;
    bool crc;  // the reply's CRC is checked
    // What a reply with `status` 0 and each of the lengths 0, 1, 0x7FFFFFFF, 0x80000000 and
    // 0xFFFFFFFF gives; empty: the operation doesn't get such replies here.
    std::vector<AgentStatus> lengths;
};

const std::vector<uint32_t> kLengths = {0, 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};

std::vector<Op> operations() {
    const std::vector<AgentStatus> headerOnly(5, kClean);  // `length` is never read
    const std::vector<AgentStatus> shortAll(5, kShort);
    const std::string item = media_item(1, "a.jpg", 2, "/a.jpg", 3, "");
    auto read16 = [](NetConnection *c, NFCFileRef *f) {
        char buffer[16];
        int32_t n = sizeof buffer;
        const AgentStatus r = NFCFileRefRead(c, f, buffer, &n);
        return r != 0 && n != 16 ? kMeddled : r;
    };
    auto tell = [](NetConnection *c, NFCFileRef *f) {
        int64_t at = -1;
        const AgentStatus r = NFCFileRefTell(c, f, &at);
        return r != 0 && at != -1 ? kMeddled : r;
    };
    auto open = [](NetConnection *c) {
        NFCFileRef *ref = reinterpret_cast<NFCFileRef *>(0x1);
        const AgentStatus r = NFCFileRefOpen(c, "/f", "r", &ref);
        if (r == 0) std::free(ref);
        return r != 0 && ref != nullptr ? kMeddled : r;
    };
    return {
        {"open", 1, reply(0, le32(7)), kReset, Field::FileNever, open, true, shortAll},
        {"read", 3, reply(0, "hello"), kReset, Field::File, file_op(read16), false,
         {kClean, kClean, kShort, kShort, kShort}},
        {"write", 4, reply(0), kShort, Field::File,
         file_op([](NetConnection *c, NFCFileRef *f) { return NFCFileRefWrite(c, f, "data", 4); }), false, headerOnly},
        {"tell", 5, reply(0, le64(10)), kReset, Field::File, file_op(tell), true, shortAll},
        // A seek that the agent accepts is followed by a tell, whose failure still leaves 0.
        {"seek", 6, reply(0, "ok"), kReset, Field::File,
         file_op([](NetConnection *c, NFCFileRef *f) { return NFCFileRefSeek(c, f, 9, 0); }), true,
         {kClean, kClean, kShort, kShort, kShort}},
        {"close", 2, reply(0), kReset, Field::File, file_op(NFCFileRefClose, true), false, headerOnly},
        {"delete", 7, reply(0), kReset, Field::File, text_op(NFCFileRefDelete), false, headerOnly},
        {"list images", 104, reply(0, item), kReset, Field::None, list_op(NMCListImages), false,
         {kClean, kShort, kShort, kShort, kShort}},
        {"add image", 105, reply(0), kReset, Field::None, text_op(NMCAddImage), false, headerOnly},
        {"stop scan", 202, reply(0), kReset, Field::Send, NDDStopScan, false, headerOnly},
    };
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
    EXPECT_TRUE(conn->mutex.try_lock()) << "the lock is still held";
    conn->mutex.unlock();
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
            EXPECT_EQ(got.result, cut < 20 ? op.cutHeader : kShort) << "cut at " << cut;
            // A failed transfer sticks as errno, a short payload as its code.
            EXPECT_EQ(got.sticky, stored(op.field, cut < 20 ? ECONNRESET : static_cast<int>(kShort))) << "cut at " << cut;
        }
        EXPECT_EQ(agent.failures(), "");
    }
}

TEST(AgentFaults, MalformedRepliesAndPayloadLengths) {
    for (const Op &op : operations()) {
        SCOPED_TRACE(op.name);
        ScriptedAgent agent;
        // Only the file family stops on a bad magic or CRC; the open never stores anything.
        Outcome got = play(agent, op, header(wrenlink::wire::kMagic ^ 1u, 0, 0, 0, 0));
        EXPECT_EQ(got.result, AgentBadMagic);
        EXPECT_EQ(got.sticky, file_stored(op.field, static_cast<int>(AgentBadMagic)));
        got = play(agent, op, reply(9));
        EXPECT_EQ(got.result, 9u);
        EXPECT_EQ(got.sticky, 0) << "a refusal is no failure of the link";
        if (op.crc) {
            for (const uint32_t status : {0u, 9u}) {  // the CRC is checked before the status
                if (op.opcode == 1 && status != 0) continue;  // an open's refusal carries no payload
                got = play(agent, op, reply(status, le64(1), 0x1234u));
                EXPECT_EQ(got.result, AgentBadCrc);
                EXPECT_EQ(got.sticky, file_stored(op.field, static_cast<int>(AgentBadCrc)));
            }
        }
        for (std::size_t i = 0; i < op.lengths.size(); ++i) {
            // What arrives: the header, then at most one byte of payload (with its CRC).
            std::string answer = reply(0, kLengths[i] == 0 ? "" : "x");
            answer.replace(4, 4, le32(kLengths[i]));
            EXPECT_EQ(play(agent, op, answer).result, op.lengths[i]) << "length " << kLengths[i];
        }
        if (!op.lengths.empty() && op.lengths.front() == kShort) {
            // The number the reply carries, one byte short, sent whole with its CRC.
            const std::string number = op.reply.substr(20);
            EXPECT_EQ(play(agent, op, reply(0, number.substr(0, number.size() - 1))).result, kShort);
        }
        EXPECT_EQ(agent.failures(), "");
    }
}
