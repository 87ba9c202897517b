// Threads on the agent link: file exchanges of many threads on one connection, and the scan's
// control operations while its loop runs. Run under ThreadSanitizer by the tsan preset.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;

namespace {

// The byte at `offset` of file `id`, as the agent serves it and expects it written.
char pattern(uint32_t id, uint64_t offset) { return static_cast<char>((id * 31 + offset) & 0xFF); }

// A file agent that knows every file by its pattern. A request that is not whole and well formed
// (what two threads mixing their bytes would make) ends the connection.
std::optional<std::string> serve_files(const Request &r) {
    const std::string &p = r.payload;
    switch (r.header.opcode) {
    case 1:  // "/f<id>" "r+"
        return reply(0, le32(static_cast<uint32_t>(std::stoul(p.substr(2)))));
    case 3: {
        const uint32_t id = wrenlink::wire::load_u32(p.data());
        const uint64_t at = wrenlink::wire::load_u64(p.data() + 4);
        std::string data(wrenlink::wire::load_u32(p.data() + 12), '\0');
        for (std::size_t i = 0; i < data.size(); ++i) data[i] = pattern(id, at + i);
        return reply(0, data, 0);
    }
    case 4: {
        const uint32_t id = wrenlink::wire::load_u32(p.data());
        const uint64_t at = wrenlink::wire::load_u64(p.data() + 4);
        for (std::size_t i = 16; i < p.size(); ++i) {
            if (p[i] != pattern(id, at + i - 16)) return std::nullopt;
        }
        return reply(0);
    }
    case 5:
        return reply(0, le64(wrenlink::wire::load_u32(p.data()) * 1000ull));
    case 2:
        return reply(0);
    default:
        return std::nullopt;
    }
}

}  // namespace

TEST(AgentThreads, EightThreadsShareOneConnection) {
    ScriptedAgent agent;
    agent.add(Script().serve(serve_files));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    std::atomic<int> faults{0};
    std::vector<std::thread> threads;
    for (uint32_t id = 1; id <= 8; ++id) {
        threads.emplace_back([&, id] {
            NFCFileRef *ref = nullptr;
            if (NFCFileRefOpen(conn, ("/f" + std::to_string(id)).c_str(), "r+", &ref) != 0) return void(++faults);
            uint64_t position = 0;
            for (int round = 0; round < 40; ++round) {
                char buffer[300];
                int32_t length = 100 + round * 5;
                bool ok = NFCFileRefRead(conn, ref, buffer, &length) == 0 && length == 100 + round * 5;
                for (int32_t i = 0; ok && i < length; ++i) ok = buffer[i] == pattern(id, position + static_cast<uint64_t>(i));
                position += static_cast<uint64_t>(length);
                for (int32_t i = 0; i < 64; ++i) buffer[i] = pattern(id, position + static_cast<uint64_t>(i));
                ok = ok && NFCFileRefWrite(conn, ref, buffer, 64) == 0;
                position += 64;
                int64_t told = 0;
                ok = ok && NFCFileRefTell(conn, ref, &told) == 0 && told == id * 1000;
                if (!ok) ++faults;
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

void on_code(uint32_t code, uint64_t user) { reinterpret_cast<ScanRun *>(user)->said.push_back("code " + std::to_string(code)); }

}  // namespace

TEST(AgentThreads, ScanControlWhileTheLoopRuns) {
    std::mutex mutex;
    std::vector<uint32_t> opcodes;
    ScriptedAgent control;
    control.add(Script().serve([&](const Request &r) {
        std::lock_guard lock(mutex);
        opcodes.push_back(r.header.opcode);
        const bool erase = r.header.opcode == 208;
        if (erase && (r.payload != std::string("abc", 4) || r.header.length != 4)) return reply(1);
        return reply(r.header.opcode == 201 ? 0 : r.header.opcode - 200);
    }));
    std::promise<void> controlDone;
    std::shared_future<void> done = controlDone.get_future().share();
    ScriptedAgent events(10244);
    events.add(Script()
                   .expect(std::string(4, '\0'))
                   .send(event(205, le64(1) + le64(3)))
                   .hook([done] { done.wait_for(std::chrono::seconds(10)); })
                   .send(event(205, le64(2) + le64(3)) + event(205, le64(3) + le64(3))));
    ScanRun run;
    run.control = NetConnectionOpen("127.0.0.1", control.port());
    ASSERT_NE(run.control, nullptr);
    AgentStatus stop = 0, resume = 0, erase = 0;
    std::thread other([&] {
        run.firstProgress.get_future().wait();
        stop = NDDStopScan(run.control);
        resume = NDDResumeScan(run.control);
        erase = NDDEraseFile(run.control, "abc");
        controlDone.set_value();
    });
    EXPECT_EQ(NDDStartScan(run.control, nullptr, nullptr, on_code, on_progress, reinterpret_cast<uint64_t>(&run)), 0u);
    other.join();
    EXPECT_EQ(run.said, (std::vector<std::string>{"1/3", "2/3", "3/3"}));
    EXPECT_EQ(stop, 2u);
    EXPECT_EQ(resume, 3u);
    EXPECT_EQ(erase, 8u);
    EXPECT_EQ(run.pauseFromCallback, 4u);
    NetConnectionClose(run.control);
    ASSERT_TRUE(control.wait_finished(1));
    std::lock_guard lock(mutex);
    EXPECT_EQ(opcodes, (std::vector<uint32_t>{201, 202, 203, 208, 204}));
    EXPECT_EQ(control.failures() + events.failures(), "");
}
