// The reply reader over a socket whose peer has sent everything: on a control connection it never
// takes a byte of the next reply, whatever it does with this one; on the event connection it reads
// ahead and serves fields across its window's edge.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "agent/link/reply_reader.h"
#include "doubles/scripted_agent.h"

namespace wrenlink::agent {
namespace {

using test::reply;

// A connection whose agent has sent `bytes` and closed its side.
class Peer {
public:
    explicit Peer(const std::string &bytes) {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) std::abort();
        int size = 4 << 20;
        ::setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        conn_.sock = fds[0];
        EXPECT_EQ(::send(fds[1], bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        ::close(fds[1]);
    }
    ~Peer() { close_connection(&conn_); }
    NetConnection *conn() { return &conn_; }

    // What a fresh reader finds next: the status of the next reply.
    uint32_t next_status() {
        ReplyReader next(&conn_);
        wire::PacketHeader h;
        return next.take_header(h) == Took::Whole ? h.status : 0xDEAD;
    }

private:
    NetConnection conn_;
};

const std::string kBig(40 * 1024, 'b');  // more than two windows

TEST(ReplyReader, EveryWayOfEndingAReplyLeavesTheNextOneWhole) {
    struct Case {
        const char *what;
        std::string first;
        Took (*take)(ReplyReader &);
        Took expected;
    };
    const Case cases[] = {
        {"payload taken", reply(0, kBig), [](ReplyReader &r) { Payload p; return r.take_payload(UINT32_MAX, p); }, Took::Whole},
        {"payload too long", reply(0, kBig), [](ReplyReader &r) { Payload p; return r.take_payload(100, p); }, Took::TooLong},
        {"payload dropped", reply(0, kBig), [](ReplyReader &r) { return r.drop_rest(); }, Took::Whole},
        {"verified", reply(0, kBig), [](ReplyReader &r) { PayloadHead h; return r.take_verified_head(wire::payload_crc(kBig), h); }, Took::Whole},
        {"bad CRC", reply(0, kBig), [](ReplyReader &r) { PayloadHead h; return r.take_verified_head(1, h); }, Took::BadCrc},
        {"header only", reply(0, kBig), [](ReplyReader &) { return Took::Whole; }, Took::Whole},
    };
    for (const Case &c : cases) {
        Peer peer(c.first + reply(77));
        ReplyReader reader(peer.conn());
        wire::PacketHeader h;
        ASSERT_EQ(reader.take_header(h), Took::Whole) << c.what;
        EXPECT_EQ(c.take(reader), c.expected) << c.what;
        // "header only" leaves the payload unread: the next reader meets it, not the next reply.
        EXPECT_EQ(peer.next_status(), std::strcmp(c.what, "header only") == 0 ? 0xDEADu : 77u) << c.what;
    }
}

TEST(ReplyReader, VerifiedHeadKeepsTheFirstBytesOfALongPayload) {
    Peer peer(reply(0, "12345678" + kBig));
    ReplyReader reader(peer.conn());
    wire::PacketHeader h;
    PayloadHead head;
    ASSERT_EQ(reader.take_header(h), Took::Whole);
    ASSERT_EQ(reader.take_verified_head(h.crc, head), Took::Whole);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(head.bytes), 8), "12345678");
    EXPECT_EQ(head.size, 8 + kBig.size());
}

TEST(ReplyReader, AnImpossibleLengthIsRefusedUnread) {
    Peer peer(test::header(wire::kMagic, 0x80000000u, 0, 0, 0) + reply(5));
    ReplyReader reader(peer.conn());
    wire::PacketHeader h;
    Payload p;
    ASSERT_EQ(reader.take_header(h), Took::Whole);
    EXPECT_EQ(reader.take_payload(UINT32_MAX, p), Took::Short);
    EXPECT_EQ(peer.next_status(), 5u);
}

TEST(ReplyReader, AheadServesFieldsAcrossTheWindowsEdgeAndGrowsForALargerOne) {
    const std::string field(ReplyReader::kWindow - 7, 'f');
    Peer peer(field + "0123456789" + kBig + "tail");
    ReplyReader reader(peer.conn(), ReplyReader::Reach::Ahead);
    ASSERT_NE(reader.peek(field.size()), nullptr);
    reader.skip(field.size());
    char prefix[4] = {};
    ASSERT_TRUE(reader.read_prefix(prefix, 4, 10));  // straddles the edge; six bytes dropped
    EXPECT_EQ(std::string(prefix, 4), "0123");
    const unsigned char *big = reader.peek(kBig.size() + 4);
    ASSERT_NE(big, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(big) + kBig.size(), 4), "tail");
    reader.skip(kBig.size() + 4);
    EXPECT_EQ(reader.peek(1), nullptr);  // the stream has ended
}

}  // namespace
}  // namespace wrenlink::agent
