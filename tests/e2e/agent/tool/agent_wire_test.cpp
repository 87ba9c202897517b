// What only the reference agent's own wire shows, with the agent in-process: no request reaches
// outside its root, a damaged or unknown request is refused and the connection goes on, and a
// paused scan is stopped from another connection.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

#include "agent/link/connection.h"
#include "agent/wire/packets.h"
#include "doubles/scripted_agent.h"
#include "doubles/temp_tree.h"
#include "server.h"

namespace wrenlink::test {
namespace {

namespace fs = std::filesystem;
using wire::load_u32;

struct AgentReply {
    wire::PacketHeader header;
    std::string payload;
    bool complete = false;  // header and payload arrived whole
};

AgentReply receive_packet(NetConnection *conn) {
    AgentReply r;
    unsigned char raw[wire::kHeaderSize];
    if (NetConnectionRecv(conn, raw, sizeof raw, 0) != static_cast<int32_t>(sizeof raw)) return r;
    r.header = wire::decode_header(raw);
    r.payload.assign(r.header.length, '\0');
    r.complete = NetConnectionRecv(conn, r.payload.data(), static_cast<int32_t>(r.header.length), 0) ==
                 static_cast<int32_t>(r.header.length);
    return r;
}

AgentReply roundtrip(NetConnection *conn, const std::string &packet) {
    const auto size = static_cast<int32_t>(packet.size());
    return NetConnectionSend(conn, packet.data(), size, 0) == size ? receive_packet(conn) : AgentReply{};
}

uint32_t status_of(NetConnection *conn, const std::string &packet) {
    const AgentReply r = roundtrip(conn, packet);
    EXPECT_TRUE(r.complete);
    return r.header.status;
}

// The agent on its own thread, serving `tree` on an ephemeral port; a scan paced at 2 ms an item.
class AgentWire : public ::testing::Test {
protected:
    static reference_agent::AgentOptions options(const fs::path &root) {
        reference_agent::AgentOptions o;
        o.root = root.string();
        o.control.port = 0;
        o.scan.item_delay = std::chrono::milliseconds(2);
        return o;
    }
    void SetUp() override {
        tree.write("DCIM/Camera/a.jpg", "jpeg!");
        conn = connect();
    }
    void TearDown() override {
        NetConnectionClose(conn);
        agent.stop();
        thread.join();
    }
    NetConnection *connect() {
        NetConnection *c = NetConnectionOpen("127.0.0.1", agent.port());
        EXPECT_NE(c, nullptr);
        return c;
    }

    TempTree outside;  // a neighbour of the root that must never be touched
    TempTree tree;
    reference_agent::Agent agent{options(tree.root())};
    std::thread thread{[this] { agent.run(); }};
    NetConnection *conn = nullptr;
};

TEST_F(AgentWire, NoRequestReachesOutsideTheRoot) {
    const std::vector<std::pair<const char *, std::function<std::string(const char *)>>> requests = {
        {"open r", [](const char *p) { return make_file_open_packet(p, "rb"); }},
        {"open w", [](const char *p) { return make_file_open_packet(p, "wb"); }},
        {"delete", make_file_delete_packet}, {"mkdir", make_file_mkdir_packet}, {"access", make_file_acc_packet},
        {"stat", make_file_stat_packet},     {"open dir", make_open_dir_packet}, {"erase", make_erase_file_packet},
        {"add image", make_add_image_packet},
    };
    outside.write("secret.jpg", "secret");
    outside.write("dir/inner.jpg", "inner");
    const std::vector<std::pair<std::string, fs::path>> links = {
        {"DCIM/link.jpg", outside.host("secret.jpg")},
        {"DCIM/linkdir", outside.host("dir")},
        {"DCIM/dangling.jpg", outside.host("ghost.jpg")},
    };
    const std::string up = "../" + outside.root().filename().string();
    const std::vector<std::string> escapes = {
        "/../secret.jpg", up + "/secret.jpg", "/DCIM/../../" + up.substr(3) + "/secret.jpg",
        "/DCIM/link.jpg", "/DCIM/linkdir/inner.jpg", "/DCIM/linkdir/new.jpg", "/DCIM/dangling.jpg", "/DCIM/linkdir",
    };
    for (const auto &[name, request] : requests) {
        for (const auto &path : escapes) {
            for (const auto &[link, target] : links)  // put back what a request removed
                if (!tree.exists(link)) fs::create_symlink(target, tree.host(link));
            const uint32_t status = status_of(conn, request(path.c_str()));
            // Delete, erase and mkdir don't follow the last component: on a link's own name they
            // remove the link (never what it points to) or find the name taken.
            const std::string op = name;
            const bool on_a_link = path == "/DCIM/link.jpg" || path == "/DCIM/dangling.jpg" || path == "/DCIM/linkdir";
            if (!on_a_link || (op != "delete" && op != "erase" && op != "mkdir")) {
                EXPECT_EQ(status, static_cast<uint32_t>(EACCES)) << op << " " << path;
            }
        }
    }
    EXPECT_EQ(outside.read("secret.jpg"), "secret");
    EXPECT_EQ(outside.read("dir/inner.jpg"), "inner");
    EXPECT_FALSE(outside.exists("ghost.jpg"));
    EXPECT_FALSE(outside.exists("dir/new.jpg"));
    EXPECT_FALSE(outside.exists("new.jpg"));
    EXPECT_EQ(TestPing(conn), 0);
}

TEST_F(AgentWire, ADamagedOrUnknownRequestIsRefusedAndTheConnectionGoesOn) {
    std::string packet = make_file_mkdir_packet("/Music");
    packet[12] ^= 1;  // the CRC
    EXPECT_EQ(status_of(conn, packet), static_cast<uint32_t>(EBADMSG));
    EXPECT_FALSE(tree.exists("Music"));
    const AgentReply r = roundtrip(conn, header(wire::kMagic, 3, 9999, 0, 0) + "abc");
    EXPECT_EQ(r.header.status, static_cast<uint32_t>(ENOSYS));
    EXPECT_EQ(r.header.length, 0u);
    EXPECT_EQ(status_of(conn, make_file_mkdir_packet("/Music")), 0u);
}

// A paused scan of 200 files, read event by event on a raw event connection, ends with ECANCELED
// when another connection stops it.
TEST_F(AgentWire, AStopFromAnotherConnectionEndsAPausedScanWithEcanceled) {
    for (int f = 0; f < 200; ++f) tree.write("DCIM/f" + std::to_string(1000 + f) + ".jpg", "x");
    ASSERT_EQ(status_of(conn, make_start_scan_packet(nullptr)), 0u);
    NetConnection *events = NetConnectionOpen("127.0.0.1", wire::kEventPort);
    ASSERT_NE(events, nullptr) << "the event port must be ready once the start is answered";
    ASSERT_EQ(NetConnectionSend(events, "\0\0\0\0", 4, 0), 4);
    std::size_t found = 0;
    std::vector<uint32_t> codes;
    // Reads events until `items` items have come or the agent closes the event connection.
    auto read_events = [&](std::size_t items) {
        while (found < items) {
            const AgentReply e = receive_packet(events);
            if (!e.complete) return;
            if (e.header.opcode == wire::op::kEventFoundItem) ++found;
            if (e.header.opcode == wire::op::kEventCode) codes.push_back(load_u32(e.payload.data()));
        }
    };
    read_events(5);
    ASSERT_EQ(status_of(conn, make_pause_scan_packet()), 0u);
    NetConnection *other = connect();
    ASSERT_EQ(status_of(other, make_stop_scan_packet()), 0u);
    NetConnectionClose(other);
    read_events(SIZE_MAX);
    EXPECT_LT(found, 200u);
    EXPECT_EQ(codes, std::vector<uint32_t>{static_cast<uint32_t>(ECANCELED)});
    NetConnectionClose(events);
}

}  // namespace
}  // namespace wrenlink::test
