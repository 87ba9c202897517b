// Threads on the agent link: file exchanges of many threads on one connection, and the scan's
// control operations while its loop runs. Run under ThreadSanitizer by the tsan preset.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;
using wrenlink::wire::load_u32;
using wrenlink::wire::load_u64;
namespace op = wrenlink::wire::op;

namespace {

// The byte at `offset` of file `id`, as the agent serves it and expects it written.
char pattern(uint64_t id, uint64_t offset) { return static_cast<char>((id * 31 + offset) & 0xFF); }

// Knows every file by its pattern. A request that is not whole and well formed (what two threads
// mixing their bytes would make) ends the connection.
std::optional<std::string> serve_files(const Request &r) {
    const std::string &p = r.payload;
    if (r.header.opcode == 1 && p.size() > 2) return reply(0, le32(static_cast<uint32_t>(std::atoi(p.c_str() + 2))));
    if (r.header.opcode == 2) return reply(0);
    if (p.size() < 16) return std::nullopt;
    const uint64_t id = load_u32(p.data()), at = load_u64(p.data() + 4);
    switch (r.header.opcode) {
    case 3: {
        std::string data(load_u32(p.data() + 12), '\0');
        for (std::size_t i = 0; i < data.size(); ++i) data[i] = pattern(id, at + i);
        return reply(0, data, 0);
    }
    case 4:
        for (std::size_t i = 16; i < p.size(); ++i) {
            if (p[i] != pattern(id, at + i - 16)) return std::nullopt;
        }
        return reply(0);
    }
    return std::nullopt;
}

}  // namespace

TEST(AgentThreads, EightThreadsShareOneConnection) {
    ScriptedAgent agent;
    agent.add(Script().serve(serve_files));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    std::atomic<int> faults{0};
    std::vector<std::thread> threads;
    for (uint32_t id = 1; id <= 8; ++id) {
        threads.emplace_back([&, id] {
            NFCFileRef *ref = nullptr;
            if (NFCFileRefOpen(conn, ("/f" + std::to_string(id)).c_str(), "r+", &ref) != 0) return void(++faults);
            uint64_t at = 0;
            char buffer[300];
            for (int32_t round = 0, asked = 100; round < 40; ++round, asked += 5) {
                int32_t length = asked;
                bool ok = NFCFileRefRead(conn, ref, buffer, &length) == 0 && length == asked;
                for (int32_t i = 0; ok && i < length; ++i) ok = buffer[i] == pattern(id, at + static_cast<uint64_t>(i));
                at += static_cast<uint64_t>(length);
                for (uint64_t i = 0; i < 64; ++i) buffer[i] = pattern(id, at + i);
                at += 64;
                if (!ok || NFCFileRefWrite(conn, ref, buffer, 64) != 0) ++faults;
            }
            if (NFCFileRefClose(conn, ref) != 0) ++faults;
        });
    }
    for (auto &t : threads) t.join();
    EXPECT_EQ(faults.load(), 0);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

namespace {

struct ScanRun {
    NetConnection *control = nullptr;
    std::promise<void> firstProgress;
    std::vector<std::string> said;
    AgentStatus pauseFromCallback = 0;
};

void on_progress(int64_t done, int64_t total, uint64_t user) {
    auto *run = reinterpret_cast<ScanRun *>(user);
    run->said.push_back(std::to_string(done) + "/" + std::to_string(total));
    if (done == 1) run->firstProgress.set_value();
    if (done == 2) run->pauseFromCallback = NDDPauseScan(run->control);
}

}  // namespace

// A stop from another thread while the loop waits for events (the other control requests share
// its code), a pause from inside a callback. The agent answers each with opcode - 200 as its status.
TEST(AgentThreads, ScanControlWhileTheLoopRuns) {
    std::mutex mutex;
    std::vector<uint32_t> opcodes;
    ScriptedAgent control;
    control.add(Script().serve([&](const Request &r) {
        std::lock_guard lock(mutex);
        opcodes.push_back(r.header.opcode);
        return reply(r.header.opcode == 201 ? 0 : r.header.opcode - 200);
    }));
    std::promise<void> controlDone;
    std::shared_future<void> done = controlDone.get_future().share();
    ScriptedAgent events(10244);
    events.add(Script().expect(std::string(4, '\0')).send(event(205, le64(1) + le64(3)))
                   .hook([done] { done.wait_for(std::chrono::seconds(10)); })
                   .send(event(205, le64(2) + le64(3)) + event(205, le64(3) + le64(3))));
    ScanRun run;
    run.control = NetConnectionOpen("127.0.0.1", control.port());
    AgentStatus stopped = 0;
    std::thread other([&] {
        run.firstProgress.get_future().wait_for(std::chrono::seconds(10));
        stopped = NDDStopScan(run.control);
        controlDone.set_value();
    });
    EXPECT_EQ(NDDStartScan(run.control, nullptr, nullptr, nullptr, on_progress, reinterpret_cast<uint64_t>(&run)), 0u);
    other.join();
    EXPECT_EQ(run.said, (std::vector<std::string>{"1/3", "2/3", "3/3"}));
    EXPECT_EQ(stopped, 2u);
    EXPECT_EQ(run.pauseFromCallback, 4u);
    NetConnectionClose(run.control);
    ASSERT_TRUE(control.wait_finished(1));
    std::lock_guard lock(mutex);
    EXPECT_EQ(opcodes, (std::vector<uint32_t>{201, 202, 204}));
}

// The way out of a call that waits on a silent agent: NetConnectionClose from another thread ends
// it with an error (every exchange waits in the same receive).
TEST(AgentThreads, CloseFromAnotherThreadEndsAnExchangeThatWaits) {
    std::promise<void> asked, released;
    ScriptedAgent agent;
    agent.add(Script().expect_request(op::kPing).hook([&, done = released.get_future().share()] {
        asked.set_value();
        done.wait_for(std::chrono::seconds(60));  // well beyond the wait for the call below
    }));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    auto call = std::async(std::launch::async, TestPing, conn);
    ASSERT_EQ(asked.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    NetConnectionClose(conn);
    const bool ended = call.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    released.set_value();  // a call that did not end would end now, with the agent's close
    EXPECT_TRUE(ended) << "the close did not end the call";
    EXPECT_NE(call.get(), 0);
    EXPECT_EQ(agent.failures(), "");
}
