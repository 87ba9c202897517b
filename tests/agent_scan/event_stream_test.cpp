// The reference agent's scan, read event by event on a raw event connection.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <set>

#include "agent/wire/packets.h"
#include "agent/harness.h"

namespace wrenlink::test {
namespace {

using wire::load_u32;
using wire::load_u64;

struct Stream {
    std::vector<std::string> items;                 // found-item texts
    std::vector<std::pair<int64_t, int64_t>> progress;
    std::vector<uint32_t> codes;
    bool closed = false;
};

// Reads events until the agent closes the connection.
void read_events(NetConnection *events, Stream &s, std::size_t max_items = SIZE_MAX) {
    while (s.items.size() < max_items) {
        const AgentReply e = receive_packet(events);
        if (!e.complete) {
            s.closed = true;
            return;
        }
        ASSERT_EQ(e.header.magic, wire::kMagic);
        switch (e.header.opcode) {
            case wire::op::kEventFoundItem:
                ASSERT_FALSE(e.payload.empty());
                ASSERT_EQ(e.payload.back(), '\0') << "a found item is a NUL-terminated text";
                ASSERT_LE(e.payload.size(), 2048u);
                s.items.push_back(e.payload.substr(0, e.payload.size() - 1));
                break;
            case wire::op::kEventProgress:
                ASSERT_EQ(e.payload.size(), 16u);
                s.progress.emplace_back(static_cast<int64_t>(load_u64(e.payload.data())),
                                        static_cast<int64_t>(load_u64(e.payload.data() + 8)));
                break;
            case wire::op::kEventCode:
                ASSERT_EQ(e.payload.size(), 4u);
                s.codes.push_back(load_u32(e.payload.data()));
                break;
            default:
                FAIL() << "unexpected event " << e.header.opcode;
        }
    }
}

std::string path_of(const std::string &item) { return item.substr(item.rfind('\t') + 1); }

// Bytes that arrive within the time given, without blocking beyond it.
std::size_t bytes_arriving(NetConnection *c, int ms) {
    std::size_t total = 0;
    char buf[65536];
    for (;;) {
        pollfd p{c->sock, POLLIN, 0};
        if (::poll(&p, 1, ms) <= 0) return total;
        const ssize_t n = ::recv(c->sock, buf, sizeof buf, MSG_PEEK | MSG_DONTWAIT);
        if (n <= 0) return total;
        if (static_cast<std::size_t>(n) == total) return total;  // nothing new since the last look
        total = static_cast<std::size_t>(n);
    }
}

class AgentScan : public ::testing::Test {
protected:
    void start(InProcessAgent &agent) {
        control = agent.connect();
        ASSERT_NE(control, nullptr);
        ASSERT_EQ(roundtrip(control, make_start_scan_packet(nullptr)).header.status, 0u);
        events = NetConnectionOpen("127.0.0.1", wire::kEventPort);
        ASSERT_NE(events, nullptr) << "the event port must be ready once the start is answered";
        const char greeting[4] = {};
        ASSERT_EQ(NetConnectionSend(events, greeting, 4, 0), 4);
    }
    void TearDown() override {
        NetConnectionClose(events);
        NetConnectionClose(control);
    }

    TempTree tree;
    NetConnection *control = nullptr;
    NetConnection *events = nullptr;
};

// Every file once with progress to the total is proven end to end on 10,000 files; here: what
// the scan skips, the text of an item, and the event port's life.
TEST_F(AgentScan, StreamsRegularFilesOnlyAndClosesTheEventPortForTheNextScan) {
    tree.write("d0/sub/f3.jpg", "xyz");
    tree.write("d1/f.txt", "");
    std::filesystem::create_directories(tree.host("empty/dir"));
    std::filesystem::create_symlink(tree.host("d0"), tree.host("loop"));  // links are not followed
    InProcessAgent agent(tree.root());
    start(agent);
    Stream s;
    read_events(events, s);
    ASSERT_EQ(s.items.size(), 2u);
    // "<size>\t<mtime>\t<MIME type>\t<path>"
    EXPECT_EQ(s.items[0].substr(0, 2), "3\t");
    EXPECT_NE(s.items[0].find("\timage/jpeg\t/d0/sub/f3.jpg"), std::string::npos) << s.items[0];
    EXPECT_EQ(path_of(s.items[1]), "/d1/f.txt");
    EXPECT_EQ(s.progress.back(), (std::pair<int64_t, int64_t>(2, 2)));
    EXPECT_EQ(s.codes, std::vector<uint32_t>{0});
    EXPECT_TRUE(s.closed);

    EXPECT_EQ(NetConnectionOpen("127.0.0.1", wire::kEventPort), nullptr);
    EXPECT_EQ(roundtrip(control, make_start_scan_packet(nullptr)).header.status, 0u);
    NetConnection *again = NetConnectionOpen("127.0.0.1", wire::kEventPort);
    ASSERT_NE(again, nullptr);
    ASSERT_EQ(NetConnectionSend(again, "\0\0\0\0", 4, 0), 4);
    Stream second;
    read_events(again, second);
    EXPECT_EQ(second.items.size(), 2u);
    NetConnectionClose(again);
}

TEST_F(AgentScan, AnEmptyTreeEndsWithProgressZeroOfZeroAndCodeZero) {
    InProcessAgent agent(tree.root());
    start(agent);
    Stream s;
    read_events(events, s);
    EXPECT_TRUE(s.items.empty());
    EXPECT_EQ(s.progress, (std::vector<std::pair<int64_t, int64_t>>{{0, 0}}));
    EXPECT_EQ(s.codes, std::vector<uint32_t>{0});
}

class PacedScan : public AgentScan {
protected:
    void SetUp() override {
        for (int f = 0; f < 200; ++f) tree.write("DCIM/f" + std::to_string(1000 + f) + ".jpg", "x");
    }
    reference_agent::ScanOptions paced() {
        reference_agent::ScanOptions o;
        o.item_delay = std::chrono::milliseconds(2);
        return o;
    }
};

TEST_F(PacedScan, AfterAPauseIsAnsweredNothingMoreIsSentUntilTheResume) {
    InProcessAgent agent(tree.root(), paced());
    start(agent);
    Stream s;
    read_events(events, s, 10);
    EXPECT_EQ(roundtrip(control, make_start_scan_packet(nullptr)).header.status, static_cast<uint32_t>(EBUSY));

    ASSERT_EQ(roundtrip(control, make_pause_scan_packet()).header.status, 0u);
    EXPECT_EQ(roundtrip(control, make_pause_scan_packet()).header.status, 0u) << "a second pause is harmless";
    const std::size_t queued = bytes_arriving(events, 0);
    EXPECT_EQ(bytes_arriving(events, 300), queued) << "the scan sent more while paused";

    ASSERT_EQ(roundtrip(control, make_resume_scan_packet()).header.status, 0u);
    read_events(events, s);
    std::set<std::string> unique;
    for (const auto &item : s.items) unique.insert(path_of(item));
    EXPECT_EQ(s.items.size(), 200u);
    EXPECT_EQ(unique.size(), 200u);
    EXPECT_EQ(s.codes, std::vector<uint32_t>{0});
    EXPECT_EQ(roundtrip(control, make_pause_scan_packet()).header.status, static_cast<uint32_t>(ESRCH))
        << "the scan is over";
}

TEST_F(PacedScan, AStopEndsTheScanWithEcanceledAlsoWhilePaused) {
    InProcessAgent agent(tree.root(), paced());
    start(agent);
    Stream s;
    read_events(events, s, 5);
    ASSERT_EQ(roundtrip(control, make_pause_scan_packet()).header.status, 0u);
    // Another control connection may steer the same scan.
    NetConnection *other = agent.connect();
    ASSERT_EQ(roundtrip(other, make_stop_scan_packet()).header.status, 0u);
    NetConnectionClose(other);
    read_events(events, s);
    EXPECT_LT(s.items.size(), 200u);
    EXPECT_EQ(s.codes, std::vector<uint32_t>{static_cast<uint32_t>(ECANCELED)});
    EXPECT_TRUE(s.closed);
}

TEST_F(PacedScan, AStartThatNobodyFollowsIsDroppedAndTheNextStartWorks) {
    reference_agent::ScanOptions o = paced();
    o.connect_wait = std::chrono::milliseconds(200);
    InProcessAgent agent(tree.root(), o);
    control = agent.connect();
    ASSERT_EQ(roundtrip(control, make_start_scan_packet(nullptr)).header.status, 0u);
    // Nobody connects: the agent gives the scan up, and a start is refused only until then.
    uint32_t status = 0;
    int refusals = 0;
    for (; refusals < 100; ++refusals) {
        status = roundtrip(control, make_start_scan_packet(nullptr)).header.status;
        if (status != static_cast<uint32_t>(EBUSY)) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(status, 0u);
    EXPECT_GT(refusals, 0);
    EXPECT_EQ(roundtrip(control, make_stop_scan_packet()).header.status, 0u);
}

}  // namespace
}  // namespace wrenlink::test
