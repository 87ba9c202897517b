// A peer that breaks the frame loses its own connection and nothing else.
#include <gtest/gtest.h>

#include <cerrno>

#include "agent/wire/packets.h"
#include "doubles/scripted_agent.h"
#include "harness.h"
#include "options.h"

namespace wrenlink::test {
namespace {

class AgentRobustness : public ::testing::Test {
protected:
    void SetUp() override {
        witness = agent.connect();
        ASSERT_NE(witness, nullptr);
    }
    void TearDown() override { NetConnectionClose(witness); }

    // Sends raw bytes on a fresh connection and tells whether the agent closed it.
    bool closes_after(const std::string &bytes) {
        NetConnection *c = agent.connect();
        EXPECT_EQ(NetConnectionSend(c, bytes.data(), static_cast<int32_t>(bytes.size()), 0),
                  static_cast<int32_t>(bytes.size()));
        const bool closed = peer_closed(c);
        NetConnectionClose(c);
        return closed;
    }

    TempTree tree;
    InProcessAgent agent{tree.root()};
    NetConnection *witness = nullptr;
};

TEST_F(AgentRobustness, AFrameThatCannotBeFollowedClosesOnlyItsConnection) {
    EXPECT_TRUE(closes_after(header(0xDEADBEEF, 0, 0, 0, 0)));
    EXPECT_TRUE(closes_after(header(wire::kMagic, 64 * 1024 + 1, wire::op::kFileStat, 0, 0)));
    EXPECT_TRUE(closes_after(header(wire::kMagic, 0xFFFFFFFF, wire::op::kListImage, 0, 0)));
    EXPECT_TRUE(closes_after(header(wire::kMagic, 15, wire::op::kFileWrite, 0, 0)));
    EXPECT_TRUE(closes_after(header(wire::kMagic, 0x80000010u, wire::op::kFileWrite, 0, 0)));
    EXPECT_EQ(TestPing(witness), 0);
}

TEST_F(AgentRobustness, APeerThatLeavesHalfWayIsForgotten) {
    for (const std::string &cut : {make_ping_packet().substr(0, 7), make_file_mkdir_packet("/abc").substr(0, 22),
                                   make_file_write_packet(1, 0, 1000) + std::string(10, 'x')}) {
        NetConnection *c = agent.connect();
        ASSERT_EQ(NetConnectionSend(c, cut.data(), static_cast<int32_t>(cut.size()), 0),
                  static_cast<int32_t>(cut.size()));
        NetConnectionClose(c);
    }
    EXPECT_EQ(TestPing(witness), 0);
    EXPECT_FALSE(tree.exists("abc"));
}

TEST_F(AgentRobustness, AnUnknownRequestIsAnsweredWithEnosysAndItsPayloadSkipped) {
    AgentReply r = roundtrip(witness, header(wire::kMagic, 3, 9999, 0, 0) + "abc");
    EXPECT_EQ(r.header.status, static_cast<uint32_t>(ENOSYS));
    EXPECT_EQ(r.header.length, 0u);
    EXPECT_EQ(TestPing(witness), 0);
}

TEST_F(AgentRobustness, ScanControlWithoutAScanIsRefused) {
    EXPECT_EQ(roundtrip(witness, make_pause_scan_packet()).header.status, static_cast<uint32_t>(ESRCH));
    EXPECT_EQ(roundtrip(witness, make_resume_scan_packet()).header.status, static_cast<uint32_t>(ESRCH));
    EXPECT_EQ(roundtrip(witness, make_stop_scan_packet()).header.status, static_cast<uint32_t>(ESRCH));
    tree.write("gone.txt", "x");
    EXPECT_EQ(roundtrip(witness, make_erase_file_packet("/gone.txt")).header.status, 0u);
    EXPECT_FALSE(tree.exists("gone.txt"));
    EXPECT_EQ(roundtrip(witness, make_erase_file_packet("/gone.txt")).header.status, static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(roundtrip(witness, make_erase_file_packet("/")).header.status, static_cast<uint32_t>(EISDIR));
}

TEST(AgentOptions, TheCommandLineTakesOnlyLoopbackAddressesAndNumbers) {
    std::string error;
    auto o = reference_agent::parse_options({"--port", "0", "--verbose", "--scan-delay-us", "250", "/srv/phone"}, error);
    ASSERT_TRUE(o) << error;
    EXPECT_EQ(o->root, "/srv/phone");
    EXPECT_EQ(o->port, 0);
    EXPECT_TRUE(o->verbose);
    EXPECT_EQ(o->scan.item_delay.count(), 250);
    EXPECT_EQ(o->address, "127.0.0.1");

    EXPECT_TRUE(reference_agent::parse_options({"--address", "127.0.0.2", "root"}, error));
    EXPECT_FALSE(reference_agent::parse_options({"--address", "0.0.0.0", "root"}, error));
    EXPECT_NE(error.find("loopback"), std::string::npos);
    for (const std::vector<std::string> &bad : std::vector<std::vector<std::string>>{
             {"--address", "10.0.0.1", "root"}, {"--port", "70000", "root"}, {"--port", "12x", "root"}, {"--port"}, {},
             {"a", "b"}, {"--help"}})
        EXPECT_FALSE(reference_agent::parse_options(bad, error)) << bad.size();
    EXPECT_EQ(error, "");
}

}  // namespace
}  // namespace wrenlink::test
