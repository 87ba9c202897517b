// The reference agent's remote file handles, beyond what the end-to-end tests show through the
// library: the open modes, each refusal's errno, a write whose count disagrees with its frame,
// and handles that belong to their connection.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "agent/wire/packets.h"
#include "doubles/scripted_agent.h"
#include "harness.h"

namespace wrenlink::test {
namespace {

using wire::load_u32;

class AgentFiles : public ::testing::Test {
protected:
    void SetUp() override {
        tree.write("Download/notes.txt", "0123456789abcdefghij");
        conn = agent.connect();
        ASSERT_NE(conn, nullptr);
    }
    void TearDown() override { NetConnectionClose(conn); }

    uint32_t status(const std::string &packet) { return roundtrip(conn, packet).header.status; }
    // The remote id, or 0 when the open is refused.
    uint32_t open(const char *path, const char *mode) {
        const AgentReply r = roundtrip(conn, make_file_open_packet(path, mode));
        return r.header.status == 0 && r.payload.size() == 4 ? load_u32(r.payload.data()) : 0;
    }
    std::string read(uint32_t id, int64_t offset, int32_t count) {
        return roundtrip(conn, make_file_read_packet(id, offset, count)).payload;
    }
    uint32_t write(uint32_t id, int64_t offset, const std::string &data) {
        return status(make_file_write_packet(id, offset, static_cast<int32_t>(data.size())) + data);
    }

    TempTree tree;
    InProcessAgent agent{tree.root()};
    NetConnection *conn = nullptr;
};

TEST_F(AgentFiles, EachModeCreatesTruncatesOrAppendsAsItSays) {
    EXPECT_EQ(open("/Download/new/out.bin", "wb"), 0u) << "no directory is made on the way";
    uint32_t id = open("/Download/out.bin", "wb");
    ASSERT_NE(id, 0u);
    EXPECT_EQ(write(id, 0, "hello"), 0u);
    EXPECT_EQ(write(id, 10, "world"), 0u);  // the gap reads as zeros
    EXPECT_EQ(status(make_file_read_packet(id, 0, 5)), static_cast<uint32_t>(EBADF)) << "opened for writing only";
    EXPECT_EQ(status(make_file_close_packet(id)), 0u);
    EXPECT_EQ(tree.read("Download/out.bin"), std::string("hello\0\0\0\0\0world", 15));

    id = open("/Download/out.bin", "ab");
    EXPECT_EQ(write(id, 0, "!"), 0u);  // append mode writes at the end whatever the offset
    EXPECT_EQ(tree.read("Download/out.bin").substr(15), "!");
    id = open("/Download/out.bin", "r+b");
    EXPECT_EQ(write(id, 1, "EL"), 0u);
    EXPECT_EQ(read(id, 0, 5), "hELlo");
    EXPECT_EQ(read(id, 14, 100), "d!") << "past the end: what there is";
    EXPECT_EQ(read(id, 25, 8), "");
    const AgentReply sought = roundtrip(conn, make_file_seek_packet(id, 100, SEEK_END));
    EXPECT_EQ(sought.payload, le64(116)) << "past the end is allowed, as with lseek";
    id = open("/Download/out.bin", "w+");
    EXPECT_EQ(read(id, 0, 5), "") << "w truncates";
}

TEST_F(AgentFiles, RefusalsCarryTheErrnoOfTheFailingCallAndNoPayload) {
    ASSERT_EQ(::mkfifo(tree.host("Download/pipe").c_str(), 0600), 0);
    const uint32_t id = open("/Download/notes.txt", "rb");
    const struct {
        const char *what;
        std::string request;
        int error;
    } cases[] = {
        {"missing", make_file_open_packet("/Download/missing.txt", "rb"), ENOENT},
        {"exclusive", make_file_open_packet("/Download/notes.txt", "wx"), EEXIST},
        {"directory", make_file_open_packet("/Download", "rb"), EISDIR},
        {"fifo (must not hang for a writer)", make_file_open_packet("/Download/pipe", "rb"), EPERM},
        {"empty mode", make_file_open_packet("/Download/notes.txt", ""), EINVAL},
        {"mode q", make_file_open_packet("/Download/notes.txt", "q"), EINVAL},
        {"mode rw", make_file_open_packet("/Download/notes.txt", "rw"), EINVAL},
        {"mode r+z", make_file_open_packet("/Download/notes.txt", "r+z"), EINVAL},
        {"mode rx", make_file_open_packet("/Download/notes.txt", "rx"), EINVAL},
        {"read unknown id", make_file_read_packet(77, 0, 1), EBADF},
        {"write unknown id", make_file_write_packet(77, 0, 1) + "x", EBADF},
        {"tell unknown id", make_file_tell_packet(77), EBADF},
        {"seek unknown id", make_file_seek_packet(77, 0, SEEK_SET), EBADF},
        {"close unknown id", make_file_close_packet(77), EBADF},
        {"negative offset", make_file_read_packet(id, -1, 1), EINVAL},
        {"negative count", make_file_read_packet(id, 0, -1), EINVAL},
        {"seek before the start", make_file_seek_packet(id, -1, SEEK_SET), EINVAL},
        {"unknown whence", make_file_seek_packet(id, 0, 3), EINVAL},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const AgentReply r = roundtrip(conn, c.request);
        EXPECT_EQ(r.header.status, static_cast<uint32_t>(c.error));
        EXPECT_EQ(r.header.length + r.header.crc, 0u);
    }
    EXPECT_EQ(status(make_file_close_packet(id)), 0u);
    EXPECT_EQ(status(make_file_close_packet(id)), static_cast<uint32_t>(EBADF)) << "a closed id is gone";
    EXPECT_EQ(TestPing(conn), 0) << "the stream is still in step";
}

TEST_F(AgentFiles, AWriteWhoseCountDisagreesWithItsFrameIsRefusedAndItsDataConsumed) {
    const uint32_t id = open("/Download/w.bin", "wb");
    // The block says 3 bytes, the frame carries 5.
    std::string head = make_file_write_packet(id, 0, 5);
    wire::store_u32(head.data() + 20 + 12, 3);
    EXPECT_EQ(status(head + "abcde"), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(TestPing(conn), 0);
    EXPECT_EQ(tree.read("Download/w.bin"), "");
}

TEST_F(AgentFiles, ConnectionsKeepTheirOwnHandlesAndAreServedAtTheSameTime) {
    NetConnection *other = agent.connect();
    const uint32_t mine = open("/Download/notes.txt", "rb");
    EXPECT_EQ(roundtrip(other, make_file_read_packet(mine, 0, 4)).header.status, static_cast<uint32_t>(EBADF));
    const AgentReply theirs = roundtrip(other, make_file_open_packet("/Download/notes.txt", "rb"));
    const uint32_t their_id = load_u32(theirs.payload.data());
    EXPECT_EQ(roundtrip(other, make_file_read_packet(their_id, 2, 3)).payload, "234");
    EXPECT_EQ(read(mine, 0, 2), "01");
    NetConnectionClose(other);
}

}  // namespace
}  // namespace wrenlink::test
