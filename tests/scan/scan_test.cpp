// The scan's event loop, played by a scripted agent on the fixed event port 10244.
#include <gtest/gtest.h>

#include <dirent.h>

#include <string>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;
using Said = std::vector<std::string>;

namespace {

const std::string kGreeting(4, '\0');

void on_item(const char *item, uint64_t said) { reinterpret_cast<Said *>(said)->push_back("item:" + std::string(item)); }
void on_code(uint32_t code, uint64_t said) {
    reinterpret_cast<Said *>(said)->push_back("code:" + std::to_string(code));
}
void on_progress(int64_t done, int64_t total, uint64_t said) {
    reinterpret_cast<Said *>(said)->push_back("progress:" + std::to_string(done) + "/" + std::to_string(total));
}

std::string progress(int64_t done, int64_t total, std::optional<uint32_t> length = std::nullopt) {
    return event(205, le64(static_cast<uint64_t>(done)) + le64(static_cast<uint64_t>(total)), length);
}
std::string code(uint32_t value) { return event(206, le32(value)); }
std::string found(const std::string &text) { return event(207, text); }

// One agent that accepts every start; each scan's event stream is added to `events` beforehand.
class Scans {
public:
    Scans() {
        control_.add(Script().serve([](const Request &) { return reply(0); }));
        conn_ = NetConnectionOpen("127.0.0.1", control_.port());
    }
    ~Scans() { NetConnectionClose(conn_); }

    // Runs one scan whose events are `stream`, cut by the agent's close.
    Said run(const std::string &stream) {
        events_.add(Script().expect(kGreeting).send(stream));
        Said said;
        EXPECT_EQ(NDDStartScan(conn_, nullptr, on_item, on_code, on_progress, reinterpret_cast<uint64_t>(&said)), 0u);
        return said;
    }
    std::string failures() const { return control_.failures() + events_.failures(); }

private:
    ScriptedAgent control_;
    ScriptedAgent events_{10244};
    NetConnection *conn_ = nullptr;
};

std::size_t open_descriptors() {
    std::size_t n = 0;
    if (DIR *dir = opendir("/proc/self/fd")) {
        while (readdir(dir) != nullptr) ++n;
        closedir(dir);
    }
    return n;
}

}  // namespace

TEST(Scan, EndLogicAndPayloads) {
    const std::string a2048(2048, 'a');
    const struct {
        std::string stream;
        Said said;
    } rows[] = {
        {"", {"code:22"}},
        {progress(5, 10), {"progress:5/10", "code:22"}},
        {progress(10, 10), {"progress:10/10"}},
        {progress(11, 10), {"progress:11/10"}},
        {progress(2, 2, 0), {"progress:2/2"}},  // 16 bytes whatever the length says
        {code(7), {"code:7"}},
        {code(7) + progress(1, 2), {"code:7", "progress:1/2", "code:22"}},
        {event(206, ""), {"code:0"}},
        {event(206, bytes("01 02")), {"code:513"}},
        {event(206, le32(9) + "xy") + progress(1, 1), {"code:9", "progress:1/1"}},
        {event(206, "ab", 4), {"code:22"}},
        {found("") + code(1), {"item:", "code:1"}},
        {found("abc").substr(0, 22), {"code:22"}},
        {event(300, "") + code(3), {"code:3"}},
        {event(300, code(3)), {"code:3"}},  // the payload of an unknown event is read as the next header
        {found(a2048) + found("b") + code(0), {"item:" + a2048, "item:b", "code:0"}},
        {found(a2048 + std::string(952, 'z')) + found("c") + code(0), {"item:" + a2048, "item:c", "code:0"}},
    };
    Scans scans;
    for (const auto &row : rows) EXPECT_EQ(scans.run(row.stream), row.said) << hex(row.stream.substr(0, 64));
    EXPECT_EQ(scans.failures(), "");
}

// Whatever byte the stream is cut at, the callbacks are those of the whole events before the cut,
// then code 22 unless the cut fell between events (or inside a header) of a finished scan.
TEST(Scan, StreamCutAtAnyByte) {
    struct Event {
        std::string wire;
        std::string said;  // empty: says nothing
        int finishes;      // 1: finished after it, 0: unfinished after it, -1: unchanged
    };
    const Event events[] = {{progress(1, 3), "progress:1/3", 0},   {found("alpha"), "item:alpha", -1},
                            {code(5), "code:5", 1},                 {event(300, ""), "", -1},
                            {event(206, le32(6) + "zz"), "code:6", 1}, {progress(2, 3), "progress:2/3", 0},
                            {found(""), "item:", -1},               {progress(3, 3), "progress:3/3", 1}};
    std::string stream;
    for (const Event &e : events) stream += e.wire;
    const std::size_t before = open_descriptors();
    {
        Scans scans;
        for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
            Said expected;
            bool finished = false;
            std::size_t at = 0;
            for (const Event &e : events) {
                if (cut < at + e.wire.size()) {
                    if (cut >= at + 20 || !finished) expected.push_back("code:22");
                    finished = true;
                    break;
                }
                if (!e.said.empty()) expected.push_back(e.said);
                if (e.finishes >= 0) finished = e.finishes == 1;
                at += e.wire.size();
            }
            if (!finished) expected.push_back("code:22");
            ASSERT_EQ(scans.run(stream.substr(0, cut)), expected) << "cut at " << cut;
        }
        EXPECT_EQ(scans.failures(), "");
    }
    EXPECT_EQ(open_descriptors(), before) << "a scan left a descriptor open";
}

TEST(Scan, ManyItemsAcrossReadBuffers) {
    std::string stream;
    Said expected;
    for (int i = 0; i < 120; ++i) {
        const std::string text = std::to_string(i) + std::string(1500 + static_cast<std::size_t>(i), 'x');
        stream += found(text);
        expected.push_back("item:" + text);
    }
    stream += progress(1, 1);
    expected.push_back("progress:1/1");
    Scans scans;
    EXPECT_EQ(scans.run(stream), expected);
}

TEST(Scan, RefusedStartOpensNoEventConnection) {
    ScriptedAgent control;
    control.add(Script().expect(bytes("fc 9c cf f0 00 00 00 00 c9 00 00 00 00 00 00 00 00 00 00 00")).send(reply(7)));
    ScriptedAgent events(10244);
    NetConnection *conn = NetConnectionOpen("127.0.0.1", control.port());
    ASSERT_NE(conn, nullptr);
    Said said;
    EXPECT_EQ(NDDStartScan(conn, "ignored", on_item, on_code, on_progress, reinterpret_cast<uint64_t>(&said)), 7u);
    EXPECT_TRUE(said.empty());
    EXPECT_EQ(events.connections(), 0u);
    NetConnectionClose(conn);
    EXPECT_EQ(control.failures(), "");
}

TEST(Scan, NoEventListenerIsABrokenStream) {
    ScriptedAgent control;
    control.add(Script().read(20).send(reply(0)));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", control.port());
    ASSERT_NE(conn, nullptr);
    Said said;
    EXPECT_EQ(NDDStartScan(conn, nullptr, on_item, on_code, on_progress, reinterpret_cast<uint64_t>(&said)), 0u);
    EXPECT_EQ(said, Said{"code:22"});
    NetConnectionClose(conn);
}
