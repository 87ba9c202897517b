// The net connection and the ping, through the public ABI, against the scripted agent. What a
// failed receive gives inside an exchange is played with the other reply faults (scripted/agent),
// a receive or a send under a host's signals in hostile/.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "doubles/scripted_agent.h"

using wrenlink::test::bytes;
using wrenlink::test::Script;
using wrenlink::test::ScriptedAgent;

namespace {

const std::string kPingRequest = bytes("fc9ccff0 00000000 00000000 00000000 00000000");

NetConnection *open_to(const ScriptedAgent &agent) { return NetConnectionOpen("127.0.0.1", agent.port()); }

// Counts SIGPIPE instead of dying of it, so a test can prove that none was raised.
std::atomic<int> g_sigpipes{0};

}  // namespace

TEST(NetConnectionOpen, RefusesBadAddressesAndClosedPortsAndTakesTheLow16BitsOfThePort) {
    EXPECT_EQ(NetConnectionOpen("not an address", 1), nullptr);
    EXPECT_EQ(NetConnectionOpen("::1", 1), nullptr);  // IPv4 only
    EXPECT_EQ(NetConnectionOpen(nullptr, 1), nullptr);
    uint16_t closed_port;
    {
        ScriptedAgent gone;
        closed_port = gone.port();
    }
    EXPECT_EQ(NetConnectionOpen("127.0.0.1", closed_port), nullptr);
    ScriptedAgent agent;
    agent.add(Script().expect(kPingRequest).send(bytes("00000001")));
    NetConnection *c = NetConnectionOpen("127.0.0.1", 0x10000u + agent.port());
    EXPECT_EQ(TestPing(c), 0);
    NetConnectionClose(c);
}

// Zero and negative lengths touch neither the buffer nor the peer, whose first bytes are "xyz".
TEST(NetConnectionSendRecv, ZeroAndNegativeLengthsTouchNothing) {
    ScriptedAgent agent;
    agent.add(Script().expect("xyz").send("ab"));
    NetConnection *c = open_to(agent);
    EXPECT_EQ(NetConnectionSend(c, "ignored", -5, 0), 0);
    char buf[4] = {'q', 'q', 'q', 'q'};
    EXPECT_EQ(NetConnectionRecv(c, buf, static_cast<int32_t>(0x80000000u), 0), 0);
    EXPECT_EQ(std::string(buf, 4), "qqqq");
    EXPECT_EQ(NetConnectionSend(c, "xyz", 3, 0), 3);
    EXPECT_EQ(NetConnectionRecv(c, buf, 2, 0), 2);
    EXPECT_EQ(std::string(buf, 2), "ab");
    EXPECT_TRUE(agent.wait_finished(1));
    EXPECT_EQ(agent.failures(), "");
    NetConnectionClose(c);
}

TEST(NetConnectionSend, AFailedSendIsStickyAndRaisesNoSigpipe) {
    struct sigaction sa {}, old{};
    sa.sa_handler = [](int) { ++g_sigpipes; };
    sigaction(SIGPIPE, &sa, &old);
    ScriptedAgent agent;
    agent.add(Script());
    NetConnection *c = open_to(agent);
    ASSERT_TRUE(agent.wait_finished(1));
    const char block[4096] = {};  // sent until the peer's going away shows
    for (int i = 0; i < 1000 && NetConnectionSend(c, block, sizeof block, 0) == static_cast<int32_t>(sizeof block); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(g_sigpipes.load(), 0);

    // From now on every send is refused at once, also one of length 0, with the stored reason.
    errno = 0;
    EXPECT_EQ(NetConnectionSend(c, "x", 1, 0), -1);
    const int stored = errno;
    EXPECT_TRUE(stored == EPIPE || stored == ECONNRESET) << stored;
    EXPECT_EQ(NetConnectionSend(c, "x", 0, 0), -1);
    EXPECT_EQ(TestPing(c), -2);
    EXPECT_EQ(g_sigpipes.load(), 0);

    // Closing clears the error; the handle stays a record that fails cleanly.
    NetConnectionClose(c);
    NetConnectionClose(c);
    char buf[4];
    EXPECT_EQ(NetConnectionRecv(c, buf, 4, 0), -1);
    EXPECT_EQ(NetConnectionSend(c, "x", 1, 0), 0);  // nothing sent: the stale socket fails
    EXPECT_EQ(NetConnectionSend(c, "x", 1, 0), -1);
    sigaction(SIGPIPE, &old, nullptr);
}

TEST(NetConnection, NullHandlesDoNothing) {
    NetConnectionClose(nullptr);
    NetConnectionLock(nullptr);
    NetConnectionUnlock(nullptr);
    EXPECT_EQ(NetConnectionSend(nullptr, "x", 1, 0), -1);
    char b;
    EXPECT_EQ(NetConnectionRecv(nullptr, &b, 1, 0), -1);
    EXPECT_EQ(TestPing(nullptr), -2);
}

TEST(TestPing, Answers) {
    struct Case {
        const char *name;
        Script script;
        int32_t expected;
    };
    Case cases[] = {
        {"correct agent", Script().expect(kPingRequest).send(bytes("00 00 00 01")), 0},
        {"reply read as a little-endian 1 is wrong", Script().expect(kPingRequest).send(bytes("01 00 00 00")), -4},
        {"closes after two bytes", Script().expect(kPingRequest).send(bytes("00 00")), -4},
        {"resets the connection", Script().expect(kPingRequest).reset(), -3},
    };
    for (auto &c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedAgent agent;
        agent.add(c.script);
        NetConnection *conn = open_to(agent);
        ASSERT_NE(conn, nullptr);
        EXPECT_EQ(TestPing(conn), c.expected);
        NetConnectionClose(conn);
        EXPECT_TRUE(agent.wait_finished(1));
        EXPECT_EQ(agent.failures(), "");
    }
}
