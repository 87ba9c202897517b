// The scan's event loop, played by a scripted agent on the fixed event port 10244.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "doubles/census.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;
using Said = std::vector<std::string>;

namespace {

void on_item(const char *item, uint64_t said) { reinterpret_cast<Said *>(said)->push_back("item:" + std::string(item)); }
void on_code(uint32_t code, uint64_t said) { reinterpret_cast<Said *>(said)->push_back("code:" + std::to_string(code)); }
void on_progress(int64_t done, int64_t total, uint64_t said) {
    reinterpret_cast<Said *>(said)->push_back("progress:" + std::to_string(done) + "/" + std::to_string(total));
}

std::string progress(uint64_t done, uint64_t total, std::optional<uint32_t> length = std::nullopt) {
    return event(205, le64(done) + le64(total), length);
}
std::string code(uint32_t value) { return event(206, le32(value)); }
std::string found(const std::string &text) { return event(207, text); }

// Scans on one control connection whose agent accepts every start; `events` plays the streams.
struct Scans {
    ScriptedAgent control, events{10244};
    NetConnection *conn = nullptr;

    explicit Scans(AgentStatus answer = 0) {
        control.add(Script().serve([answer](const Request &) { return reply(answer); }));
        conn = NetConnectionOpen("127.0.0.1", control.port());
    }
    ~Scans() { NetConnectionClose(conn); }

    // One scan whose event stream is `stream`, cut by the agent's close.
    Said run(const std::string &stream, AgentStatus result = 0) {
        events.add(Script().expect(std::string(4, '\0')).send(stream));
        Said said;
        EXPECT_EQ(NDDStartScan(conn, nullptr, on_item, on_code, on_progress, reinterpret_cast<uint64_t>(&said)), result);
        return said;
    }
};

}  // namespace

TEST(Scan, EndLogicAndPayloads) {
    const std::string a2048(2048, 'a');
    std::string many;  // spans several of the loop's 64 KiB reads
    Said manySaid;
    for (std::size_t i = 0; i < 120; ++i) {
        many += found(std::to_string(i) + std::string(1500 + i, 'x'));
        manySaid.push_back("item:" + std::to_string(i) + std::string(1500 + i, 'x'));
    }
    many += code(0);
    manySaid.push_back("code:0");
    const struct {
        std::string stream;
        Said said;
    } rows[] = {
        {"", {"code:22"}},
        {progress(5, 10), {"progress:5/10", "code:22"}},
        {progress(10, 10), {"progress:10/10"}},
        {progress(11, 10), {"progress:11/10"}},
        {progress(2, 2, 0), {"progress:2/2"}},  // 16 bytes whatever the length says
        {code(7) + progress(1, 2), {"code:7", "progress:1/2", "code:22"}},
        {event(206, bytes("01 02")), {"code:513"}},
        {event(206, le32(9) + "xy") + progress(1, 1), {"code:9", "progress:1/1"}},
        {event(206, "ab", 4), {"code:22"}},
        {found("") + code(1), {"item:", "code:1"}},
        {found("abc").substr(0, 22), {"code:22"}},
        {event(300, code(3)), {"code:3"}},  // the payload of an unknown event is read as the next header
        {found(a2048) + found("b") + code(0), {"item:" + a2048, "item:b", "code:0"}},
        {found(a2048 + std::string(952, 'z')) + found("c") + code(0), {"item:" + a2048, "item:c", "code:0"}},
        {many, manySaid},
    };
    Scans scans;
    for (const auto &row : rows) EXPECT_EQ(scans.run(row.stream), row.said) << hex(row.stream.substr(0, 40));
    EXPECT_EQ(scans.control.failures() + scans.events.failures(), "");
}

// Whatever byte the stream is cut at, the callbacks are those of the whole events before the cut,
// then code 22 unless the cut fell between events (or inside a header) of a finished scan. No scan
// leaves a descriptor open.
TEST(Scan, StreamCutAtAnyByte) {
    const struct {
        std::string wire, said;
        int finishes;  // 1: the scan is finished after it, 0: unfinished, -1: unchanged
    } events[] = {{progress(1, 3), "progress:1/3", 0}, {found("alpha"), "item:alpha", -1},
                  {code(5), "code:5", 1},              {event(300, ""), "", -1},
                  {event(206, le32(6) + "zz"), "code:6", 1}, {progress(2, 3), "progress:2/3", 0},
                  {found(""), "item:", -1},            {progress(3, 3), "progress:3/3", 1}};
    std::string stream;
    for (const auto &e : events) stream += e.wire;
    const int before = wrenlink::test::open_descriptors();
    {
        Scans scans;
        for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
            Said expected;
            bool finished = false, broken = false;
            std::size_t at = 0;
            for (const auto &e : events) {
                if (cut < at + e.wire.size()) {
                    broken = cut >= at + 20 || !finished;
                    break;
                }
                if (!e.said.empty()) expected.push_back(e.said);
                if (e.finishes >= 0) finished = e.finishes == 1;
                at += e.wire.size();
            }
            if (broken || (cut == stream.size() && !finished)) expected.push_back("code:22");
            ASSERT_EQ(scans.run(stream.substr(0, cut)), expected) << "cut at " << cut;
        }
    }
    EXPECT_EQ(wrenlink::test::open_descriptors(), before);
}

TEST(Scan, RefusedStartOrNoEventListener) {
    {
        Scans refusing(7);
        EXPECT_EQ(refusing.run("", 7), Said{});
        EXPECT_EQ(refusing.events.connections(), 0u);
    }
    ScriptedAgent control;
    control.add(Script().expect_request(201).send(reply(0)));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", control.port());
    Said said;
    EXPECT_EQ(NDDStartScan(conn, nullptr, on_item, on_code, on_progress, reinterpret_cast<uint64_t>(&said)), 0u);
    EXPECT_EQ(said, Said{"code:22"});
    NetConnectionClose(conn);
}
