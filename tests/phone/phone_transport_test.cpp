// The phone's side of adb's transport, spoken to byte by byte as a server would (and as a broken
// one might). No adb needed.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "base/unique_fd.h"
#include "base/platform.h"
#include "harness.h"
#include "realadb/loopback_server.h"

namespace wrenlink::test {
namespace {

constexpr const char *kProfile = "ro.product.name=rawprod\nro.product.model=Raw Model\nro.product.device=rawdev\n";

std::string le32(uint32_t v) {
    std::string out(4, '\0');
    for (int i = 0; i < 4; ++i) out[static_cast<std::size_t>(i)] = static_cast<char>(v >> (8 * i));
    return out;
}

uint32_t load32(const std::string &s, std::size_t at) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(s[at + static_cast<std::size_t>(i)]);
    return v;
}

uint32_t word(const char (&name)[5]) { return load32(std::string(name, 4), 0); }

uint32_t byte_sum(const std::string &payload) {
    uint32_t sum = 0;
    for (const char c : payload) sum += static_cast<unsigned char>(c);
    return sum;
}

struct Msg {
    std::string command;   // four letters
    uint32_t arg0 = 0, arg1 = 0, checksum = 0;
    std::string payload;
};

// One connection playing the server's side.
class RawServer {
public:
    explicit RawServer(unsigned port) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        const timeval limit{15, 0};
        ::setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        const sockaddr_in to = loopback(static_cast<uint16_t>(port));
        connected_ = ::connect(fd_.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to) == 0;
    }
    bool connected() const { return connected_; }

    void send_raw(const std::string &bytes) { ::send(fd_.get(), bytes.data(), bytes.size(), platform::send_flags()); }

    void send(const char (&command)[5], uint32_t arg0, uint32_t arg1, const std::string &payload = {},
              std::optional<uint32_t> sum = std::nullopt) {
        const uint32_t c = word(command);
        send_raw(std::string(command, 4) + le32(arg0) + le32(arg1) + le32(static_cast<uint32_t>(payload.size())) +
                 le32(sum.value_or(byte_sum(payload))) + le32(~c) + payload);
    }

    // The next message; nullopt when the phone closed the connection (or nothing came in time).
    std::optional<Msg> receive() {
        std::string header;
        if (!read(header, 24)) return std::nullopt;
        Msg m{header.substr(0, 4), load32(header, 4), load32(header, 8), load32(header, 16), {}};
        EXPECT_EQ(load32(header, 20), ~load32(header, 0)) << "magic of " << m.command;
        if (!read(m.payload, load32(header, 12))) return std::nullopt;
        return m;
    }

    // True when the phone ends the connection (skipping whatever it still sends first).
    bool dropped_by_phone() {
        char buffer[4096];
        for (;;) {
            const ssize_t n = ::recv(fd_.get(), buffer, sizeof buffer, 0);
            if (n == 0) return true;
            if (n < 0) return false;   // timeout: the phone kept the connection
        }
    }

    // The handshake of a server of the given version and payload limit; the phone's reply.
    std::optional<Msg> handshake(uint32_t version, uint32_t max_payload) {
        send("CNXN", version, max_payload, std::string("host::\0", 7));
        return receive();
    }

private:
    bool read(std::string &to, std::size_t size) {
        to.assign(size, '\0');
        std::size_t done = 0;
        while (done < size) {
            const ssize_t n = ::recv(fd_.get(), to.data() + done, size - done, 0);
            if (n <= 0) return false;
            done += static_cast<std::size_t>(n);
        }
        return true;
    }

    UniqueFd fd_;
    bool connected_ = false;
};

class PhoneTransportTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_.write("raw.prop", kProfile);
        phone_ = std::make_unique<PhoneProcess>(
            std::vector<PhoneProcess::Phone>{{dir_.host("raw.prop").string(), dir_.host("sandbox").string()}});
        ASSERT_TRUE(phone_->ok());
    }
    TempTree dir_;
    std::unique_ptr<PhoneProcess> phone_;
};

TEST_F(PhoneTransportTest, HandshakeShowsTheProfileAndOutputKeepsToTheServersPayloadLimit) {
    RawServer server(phone_->port(0));
    ASSERT_TRUE(server.connected());
    // An older server: it checks payload sums and takes at most 4096 bytes a message.
    const auto reply = server.handshake(0x01000000, 4096);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->command, "CNXN");
    EXPECT_EQ(reply->payload, "device::ro.product.name=rawprod;ro.product.model=Raw Model;ro.product.device=rawdev;");
    EXPECT_EQ(reply->checksum, byte_sum(reply->payload));

    const std::string content = random_bytes(10000, 7);
    dir_.write("sandbox/sdcard/blob", content);
    server.send("OPEN", 77, 0, std::string("shell:cat /sdcard/blob\0", 23));
    const auto ready = server.receive();
    ASSERT_TRUE(ready);
    ASSERT_EQ(ready->command, "OKAY");
    EXPECT_EQ(ready->arg1, 77u);
    const uint32_t phone_id = ready->arg0;

    std::string received;
    for (;;) {
        const auto m = server.receive();
        ASSERT_TRUE(m) << "the phone closed before the end of the stream";
        if (m->command == "CLSE") {
            EXPECT_EQ(m->arg0, phone_id);
            EXPECT_EQ(m->arg1, 77u);
            break;
        }
        ASSERT_EQ(m->command, "WRTE");
        EXPECT_LE(m->payload.size(), 4096u);
        EXPECT_EQ(m->checksum, byte_sum(m->payload));
        received += m->payload;
        server.send("OKAY", 77, phone_id);
    }
    EXPECT_EQ(received, content);

    // A service the phone does not have is refused with a close that names only the server's id.
    server.send("OPEN", 78, 0, std::string("reboot:\0", 8));
    const auto refused = server.receive();
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->command, "CLSE");
    EXPECT_EQ(refused->arg0, 0u);
    EXPECT_EQ(refused->arg1, 78u);
}

TEST_F(PhoneTransportTest, BrokenServersAreDroppedWhileTheOthersAreServed) {
    RawServer healthy(phone_->port(0));
    ASSERT_TRUE(healthy.handshake(0x01000001, 1 << 20));

    RawServer bad_magic(phone_->port(0));
    bad_magic.send_raw("CNXN" + le32(0x01000001) + le32(4096) + le32(0) + le32(0) + le32(0x12345678));
    EXPECT_TRUE(bad_magic.dropped_by_phone());

    RawServer huge(phone_->port(0));
    huge.send_raw("CNXN" + le32(0x01000001) + le32(4096) + le32(64u << 20) + le32(0) + le32(~word("CNXN")));
    EXPECT_TRUE(huge.dropped_by_phone()) << "a 64 MiB payload is refused, not allocated";

    RawServer bad_sum(phone_->port(0));
    bad_sum.send("CNXN", 0x01000000, 4096, std::string("host::\0", 7), 12345);
    EXPECT_TRUE(bad_sum.dropped_by_phone()) << "an old server's payload sums are checked";

    // A server that writes on and on without waiting for the phone's OKAY, into a command that
    // never reads its input.
    RawServer flood(phone_->port(0));
    ASSERT_TRUE(flood.handshake(0x01000001, 1 << 20));
    flood.send("OPEN", 5, 0, std::string("shell:sleep 30\0", 15));
    const auto ready = flood.receive();
    ASSERT_TRUE(ready && ready->command == "OKAY");
    for (int i = 0; i < 40; ++i) flood.send("WRTE", 5, ready->arg0, std::string(32 * 1024, 'x'));
    EXPECT_TRUE(flood.dropped_by_phone());

    // The first server still gets its answers.
    healthy.send("OPEN", 9, 0, std::string("shell:getprop ro.product.model\0", 31));
    const auto ok = healthy.receive();
    ASSERT_TRUE(ok && ok->command == "OKAY");
    const auto out = healthy.receive();
    ASSERT_TRUE(out);
    EXPECT_EQ(out->payload, "Raw Model\n");
}

TEST_F(PhoneTransportTest, SyncRefusesMalformedRequestsWithAFailure) {
    struct Case {
        const char *what;
        std::string request;
    };
    const Case cases[] = {
        {"a path longer than 1024 bytes", "STAT" + le32(5000) + std::string(5000, 'a')},
        {"an unknown request", "ZZZZ" + le32(0)},
        {"a data record over 64 KiB", "SEND" + le32(15) + "/sdcard/f,33188" + "DATA" + le32(1 << 20)},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        RawServer server(phone_->port(0));
        ASSERT_TRUE(server.handshake(0x01000001, 1 << 20));
        server.send("OPEN", 3, 0, std::string("sync:\0", 6));
        const auto ready = server.receive();
        ASSERT_TRUE(ready && ready->command == "OKAY");
        server.send("WRTE", 3, ready->arg0, c.request);
        std::string reply;
        for (auto m = server.receive(); m && m->command != "CLSE"; m = server.receive()) {
            if (m->command == "WRTE") {
                reply += m->payload;
                server.send("OKAY", 3, ready->arg0);
            }
        }
        EXPECT_EQ(reply.substr(0, 4), "FAIL") << reply;
    }
}

}  // namespace
}  // namespace wrenlink::test
