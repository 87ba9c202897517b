// The reference agent's remote file handles, spoken to with the library's own packet builders.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "Wrenlink/crc.h"
#include "Wrenlink/packets.h"
#include "harness.h"

namespace wrenlink::test {
namespace {

using wire::load_u32;
using wire::load_u64;

class AgentFiles : public ::testing::Test {
protected:
    void SetUp() override {
        tree.write("Download/notes.txt", "0123456789abcdefghij");
        conn = agent.connect();
        ASSERT_NE(conn, nullptr);
    }
    void TearDown() override { NetConnectionClose(conn); }

    // The remote id, or 0 with the refusal in `status`.
    uint32_t open(const std::string &path, const char *mode, uint32_t *status = nullptr) {
        const AgentReply r = roundtrip(conn, make_file_open_packet(path.c_str(), mode));
        EXPECT_TRUE(r.complete);
        if (status) *status = r.header.status;
        if (r.header.status != 0) {
            EXPECT_EQ(r.header.length, 0u) << "a refused open must carry no payload";
            return 0;
        }
        EXPECT_EQ(r.payload.size(), 4u);
        EXPECT_EQ(r.header.crc, get_crc32(r.payload.data(), 4, 0));
        return load_u32(r.payload.data());
    }
    AgentReply read(uint32_t id, int64_t offset, int32_t count) {
        return roundtrip(conn, make_file_read_packet(id, offset, count));
    }
    uint32_t write(uint32_t id, int64_t offset, const std::string &data) {
        const std::string head = make_file_write_packet(id, offset, static_cast<int32_t>(data.size()));
        EXPECT_EQ(NetConnectionSend(conn, head.data(), static_cast<int32_t>(head.size()), 0), 36);
        EXPECT_EQ(NetConnectionSend(conn, data.data(), static_cast<int32_t>(data.size()), 0),
                  static_cast<int32_t>(data.size()));
        const AgentReply r = receive_packet(conn);
        EXPECT_TRUE(r.complete);
        EXPECT_EQ(r.header.length, 0u);
        return r.header.status;
    }
    // The position a tell or seek reply reports, checking its CRC; -1 for a refusal.
    int64_t position_of(const AgentReply &r) {
        EXPECT_TRUE(r.complete);
        if (r.header.status != 0) return -1;
        EXPECT_EQ(r.payload.size(), 8u);
        EXPECT_EQ(r.header.crc, get_crc32(r.payload.data(), 8, 0));
        return static_cast<int64_t>(load_u64(r.payload.data()));
    }
    int64_t tell(uint32_t id) { return position_of(roundtrip(conn, make_file_tell_packet(id))); }
    int64_t seek(uint32_t id, int64_t offset, int32_t whence) {
        return position_of(roundtrip(conn, make_file_seek_packet(id, offset, whence)));
    }
    uint32_t close(uint32_t id) { return roundtrip(conn, make_file_close_packet(id)).header.status; }

    TempTree tree;
    InProcessAgent agent{tree.root()};
    NetConnection *conn = nullptr;
};

TEST_F(AgentFiles, ReadsAtTheOffsetOfEachRequestAndKeepsThePositionForTell) {
    const uint32_t id = open("/Download/notes.txt", "rb");
    ASSERT_NE(id, 0u);
    AgentReply r = read(id, 10, 4);
    ASSERT_TRUE(r.complete);
    EXPECT_EQ(r.header.status, 0u);
    EXPECT_EQ(r.header.magic, wire::kMagic);
    EXPECT_EQ(r.payload, "abcd");
    EXPECT_EQ(tell(id), 14);

    r = read(id, 16, 100);  // past the end: what there is
    EXPECT_EQ(r.payload, "ghij");
    r = read(id, 25, 8);
    EXPECT_EQ(r.header.status, 0u);
    EXPECT_EQ(r.payload, "");
    EXPECT_EQ(read(id, 0, 0).payload, "");
    EXPECT_EQ(close(id), 0u);
}

TEST_F(AgentFiles, SeeksFromStartCurrentAndEndAndReportsTheNewPosition) {
    const uint32_t id = open("Download/notes.txt", "r");
    ASSERT_NE(id, 0u);
    EXPECT_EQ(seek(id, 5, SEEK_SET), 5);
    EXPECT_EQ(seek(id, 3, SEEK_CUR), 8);
    EXPECT_EQ(seek(id, -2, SEEK_END), 18);
    EXPECT_EQ(tell(id), 18);
    EXPECT_EQ(seek(id, 100, SEEK_END), 120);  // past the end is allowed, as with lseek
    EXPECT_EQ(seek(id, -1, SEEK_SET), -1);
    EXPECT_EQ(roundtrip(conn, make_file_seek_packet(id, -1, SEEK_SET)).header.status, static_cast<uint32_t>(EINVAL));
    const AgentReply bad = roundtrip(conn, make_file_seek_packet(id, 0, 3));
    EXPECT_EQ(bad.header.status, static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(bad.header.length, 0u);
    EXPECT_EQ(bad.header.crc, 0u);
}

TEST_F(AgentFiles, WritesCreateTruncateAndAppendAsTheirModeSays) {
    uint32_t id = open("/Download/new/out.bin", "wb", nullptr);
    EXPECT_EQ(id, 0u) << "no directory is made on the way";

    id = open("/Download/out.bin", "wb");
    ASSERT_NE(id, 0u);
    EXPECT_EQ(write(id, 0, "hello"), 0u);
    EXPECT_EQ(write(id, 10, "world"), 0u);  // the gap reads as zeros
    EXPECT_EQ(tell(id), 15);
    EXPECT_EQ(read(id, 0, 5).header.status, static_cast<uint32_t>(EBADF)) << "opened for writing only";
    EXPECT_EQ(close(id), 0u);
    EXPECT_EQ(tree.read("Download/out.bin"), std::string("hello\0\0\0\0\0world", 15));

    id = open("/Download/out.bin", "ab");
    EXPECT_EQ(write(id, 0, "!"), 0u);  // append mode writes at the end whatever the offset
    EXPECT_EQ(close(id), 0u);
    EXPECT_EQ(tree.read("Download/out.bin").substr(15), "!");

    id = open("/Download/out.bin", "r+b");
    EXPECT_EQ(write(id, 1, "EL"), 0u);
    EXPECT_EQ(read(id, 0, 5).payload, "hELlo");
    EXPECT_EQ(close(id), 0u);

    id = open("/Download/out.bin", "w+");
    EXPECT_EQ(read(id, 0, 5).payload, "") << "w truncates";
    EXPECT_EQ(close(id), 0u);
}

TEST_F(AgentFiles, RefusalsCarryTheErrnoOfTheFailingCall) {
    uint32_t status = 0;
    EXPECT_EQ(open("/Download/missing.txt", "rb", &status), 0u);
    EXPECT_EQ(status, static_cast<uint32_t>(ENOENT));
    open("/Download/notes.txt", "wx", &status);
    EXPECT_EQ(status, static_cast<uint32_t>(EEXIST));
    open("/Download", "rb", &status);
    EXPECT_EQ(status, static_cast<uint32_t>(EISDIR));
    for (const char *mode : {"", "q", "rw", "r+z", "rx"}) {
        open("/Download/notes.txt", mode, &status);
        EXPECT_EQ(status, static_cast<uint32_t>(EINVAL)) << "mode '" << mode << "'";
    }
    ASSERT_EQ(::mkfifo(tree.host("Download/pipe").c_str(), 0600), 0);
    open("/Download/pipe", "rb", &status);  // must not hang waiting for a writer
    EXPECT_EQ(status, static_cast<uint32_t>(EPERM));

    // Unknown ids, on every handle request.
    EXPECT_EQ(read(77, 0, 1).header.status, static_cast<uint32_t>(EBADF));
    EXPECT_EQ(write(77, 0, "x"), static_cast<uint32_t>(EBADF));
    EXPECT_EQ(tell(77), -1);
    EXPECT_EQ(seek(77, 0, SEEK_SET), -1);
    EXPECT_EQ(close(77), static_cast<uint32_t>(EBADF));
    // Negative counts and offsets.
    const uint32_t id = open("/Download/notes.txt", "rb");
    EXPECT_EQ(read(id, -1, 1).header.status, static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(read(id, 0, -1).header.status, static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(close(id), 0u);
    EXPECT_EQ(close(id), static_cast<uint32_t>(EBADF)) << "a closed id is gone";
    EXPECT_EQ(TestPing(conn), 0) << "the stream is still in step";
}

TEST_F(AgentFiles, AWriteWhoseCountDisagreesWithItsFrameIsRefusedAndItsDataConsumed) {
    const uint32_t id = open("/Download/w.bin", "wb");
    // The block says 3 bytes, the frame carries 5.
    std::string head = make_file_write_packet(id, 0, 5);
    wire::store_u32(head.data() + 20 + 12, 3);
    ASSERT_EQ(NetConnectionSend(conn, head.data(), 36, 0), 36);
    ASSERT_EQ(NetConnectionSend(conn, "abcde", 5, 0), 5);
    EXPECT_EQ(receive_packet(conn).header.status, static_cast<uint32_t>(EINVAL));
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
    EXPECT_EQ(read(mine, 0, 2).payload, "01");
    NetConnectionClose(other);
}

}  // namespace
}  // namespace wrenlink::test
