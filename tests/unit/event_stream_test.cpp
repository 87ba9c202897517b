// The scan's buffered reader of the event connection, on a local socket pair: what it hands out
// where the stream runs across the end of its buffer or ends early.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>

#include "agent/services/event_stream.h"
#include "base/unique_fd.h"

using wrenlink::agent::EventStream;
using wrenlink::UniqueFd;

namespace {

// A stream that holds `bytes` and then ends (the writing side is closed).
struct Stream {
    UniqueFd reader, writer;
    explicit Stream(const std::string &bytes) {
        int fds[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
        reader.reset(fds[0]);
        writer.reset(fds[1]);
        int size = 1 << 20;  // the whole stream fits before anyone reads
        ::setsockopt(writer.get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        EXPECT_EQ(::send(writer.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        writer.reset();
    }
};

std::string peeked(EventStream &s, std::size_t n) {
    const unsigned char *p = s.peek(n);
    return p == nullptr ? "<end>" : std::string(reinterpret_cast<const char *>(p), n);
}

}  // namespace

TEST(EventStream, PiecesAcrossTheBufferEndComeInOnePieceAndInOrder) {
    // One receive takes at most the buffer's 64 KiB, so the record starting 10 bytes before that
    // end arrives in two receives.
    const std::size_t filler = EventStream::kCapacity - 10;
    const std::string record = "0123456789abcdefghij";
    Stream bytes(std::string(filler, '.') + record + "tail");
    EventStream s(bytes.reader.get());
    ASSERT_TRUE(s.ok());
    ASSERT_TRUE(s.read_prefix(nullptr, 0, filler));
    EXPECT_EQ(peeked(s, 4), "0123");
    EXPECT_EQ(peeked(s, record.size()), record) << "a peek does not consume";
    s.skip(record.size());
    char tail[4];
    ASSERT_TRUE(s.read(tail, sizeof tail));
    EXPECT_EQ(std::string(tail, 4), "tail");
    EXPECT_EQ(peeked(s, 1), "<end>");
    EXPECT_FALSE(s.read(tail, 1));
}

TEST(EventStream, APeekPastTheEndGivesNothingAndLosesNothing) {
    Stream bytes("0123456789");
    EventStream s(bytes.reader.get());
    EXPECT_EQ(peeked(s, 20), "<end>");
    EXPECT_EQ(peeked(s, 10), "0123456789");
    char kept[3] = {};
    EXPECT_TRUE(s.read_prefix(kept, 3, 10)) << "the first 3 of a 10-byte field, the rest dropped";
    EXPECT_EQ(std::string(kept, 3), "012");
    EXPECT_EQ(peeked(s, 1), "<end>");
}
