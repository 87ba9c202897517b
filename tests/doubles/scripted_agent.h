// A scripted stand-in for the phone-side agent, on loopback.
//
// Each accepted connection runs the next Script given to the agent (the last one repeats when they
// run out). A script is a list of steps: expect exact bytes or a request, send bytes, run a hook,
// serve requests with a handler, reset. A script that runs out of steps closes the connection.
// Every mismatch is recorded as a failure.
//
//   ScriptedAgent agent;
//   agent.add(Script().expect(make_ping_packet()).send(bytes("00 00 00 01")));
//   NetConnection *c = NetConnectionOpen("127.0.0.1", agent.port());
//   ...
//   EXPECT_EQ(agent.failures(), "");
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/packet.h"

namespace wrenlink::test {

// "fc 9c cf f0" -> bytes. Blanks and line breaks are ignored.
std::string bytes(const std::string &hex);
// Bytes -> "fc 9c cf f0", for messages.
std::string hex(const std::string &bytes);

// The packets go through the library's codec (base/packet.h).
// A reply header with the right magic, then the payload. By default `crc` is the payload's CRC.
std::string reply(uint32_t status, const std::string &payload = {}, std::optional<uint32_t> crc = std::nullopt);
// A raw header with every field given, for malformed replies.
std::string header(uint32_t magic, uint32_t length, uint32_t opcode, uint32_t crc, uint32_t status);
// A scan event: header with `opcode`, `length` = payload size (unless given) and CRC 0, then the
// payload.
std::string event(uint32_t opcode, const std::string &payload, std::optional<uint32_t> length = std::nullopt);
std::string le32(uint32_t v);
std::string le64(uint64_t v);

// One decoded request, as a serving handler sees it.
struct Request {
    wire::PacketHeader header;
    std::string payload;
};

// What a step works on: the connection, and reads that keep what they got.
struct Link {
    int fd;
    std::function<bool(std::size_t, std::string &)> take;  // exactly n bytes; false when the peer closed
    std::function<void(const std::string &)> fail;
    bool abort = false;  // end with a reset instead of a close
    bool request(Request &r);  // one whole request (a ping has no payload)
};

class Script {
public:
    using Handler = std::function<std::optional<std::string>(const Request &)>;
    using Step = std::function<bool(Link &)>;  // false: the connection ends here

    // Read exactly these bytes; anything else is a failure (and ends the script).
    Script &expect(std::string bytes);
    // Read one whole request (header and `length` payload bytes) and check its opcode.
    Script &expect_request(uint32_t opcode);
    Script &send(std::string bytes);
    // Send n filler bytes, a piece at a time, so that a huge payload costs the agent no memory.
    Script &send_filler(std::size_t n);
    // Run test code at this point (wait on a latch, count a step ...).
    Script &hook(std::function<void()> fn);
    // Answer requests until the peer closes: the handler gets each request and returns the reply
    // bytes (std::nullopt: close the connection).
    Script &serve(Handler handler);
    // Abort the connection: the peer's next receive fails with a reset instead of an end of stream.
    Script &reset();

private:
    friend class ScriptedAgent;
    std::vector<Step> steps_;
};

class ScriptedAgent {
public:
    // port 0: an ephemeral port of the system's choosing.
    explicit ScriptedAgent(uint16_t port = 0);
    ~ScriptedAgent();
    ScriptedAgent(const ScriptedAgent &) = delete;
    ScriptedAgent &operator=(const ScriptedAgent &) = delete;

    uint16_t port() const { return port_; }
    // Scripts for the connections in the order they are accepted.
    ScriptedAgent &add(Script script);

    // Waits until `n` connections have finished their scripts; false on time-out.
    bool wait_finished(std::size_t n, std::chrono::milliseconds limit = std::chrono::seconds(10));
    std::size_t connections() const;
    // Every mismatch, one line each; empty when all went to plan.
    std::string failures() const;

private:
    void accept_loop();
    void run(std::size_t index, const Script &script);

    int listen_fd_ = -1;
    int wake_[2] = {-1, -1};
    uint16_t port_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<Script> scripts_;
    std::vector<int> conns_;  // guarded by mutex_, as is all below
    std::vector<std::thread> workers_;
    std::size_t finished_ = 0;
    std::string failures_;
    std::thread acceptor_;
};

}  // namespace wrenlink::test
