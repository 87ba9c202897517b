// A host that cancels one of its threads (deferred cancellation) while the thread is blocked inside
// the library: the thread unwinds out of the call, the library's locks are free again, its
// descriptors closed and its children gone, and the next call from another thread works.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "doubles/census.h"
#include "doubles/fake_adb_fixture.h"
#include "doubles/scripted_agent.h"
#include "doubles/tool_runs.h"

using namespace std::chrono_literals;
using namespace wrenlink::test;

// The C library unwinds a cancelled thread without telling AddressSanitizer, which then finds the
// red zones of the unwound frames still marked on the stack and reports the next frame that lands
// there. Frames on the sanitizer's side stack leave no such marks.
extern "C" const char *__asan_default_options() { return "detect_stack_use_after_return=1"; }

namespace {

void *run_call(void *call) {
    (*static_cast<std::function<void()> *>(call))();
    return nullptr;
}

// Runs `call` on a thread of its own and cancels that thread once `inside` says that it waits in
// the library. True when the thread ended by that cancellation.
bool cancelled_inside(std::function<void()> call, const std::function<bool()> &inside) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, run_call, &call) != 0) return false;
    for (int i = 0; i < 2000 && !inside(); ++i) std::this_thread::sleep_for(5ms);
    pthread_cancel(thread);
    void *result = nullptr;
    pthread_join(thread, &result);
    return result == PTHREAD_CANCELED;
}

template <class Call>
auto on_another_thread(Call call) {
    return std::async(std::launch::async, call).get();
}

}  // namespace

TEST(Cancellation, ToolRunKillsItsToolAndFreesTheRunnersLock) {
    FakeAdb adb;
    adb.scenario("args endless sleep 60000\nargs quick out \"done\\n\"");
    const int descriptors = open_descriptors();
    EXPECT_TRUE(cancelled_inside([] { adb_text(" endless"); }, [&] { return !adb.runs().empty(); }));
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(zombie_child_left());
    EXPECT_NE(::kill(static_cast<pid_t>(adb.records().at(0).pid), 0), 0) << "the tool outlived its run";
    EXPECT_EQ(on_another_thread([] { return adb_text(" quick"); }), "done\n");
}

TEST(Cancellation, FileOpenOnASilentAgentFreesTheConnectionsLock) {
    std::atomic<bool> asked{false};
    std::promise<void> cancelled;
    ScriptedAgent agent;
    // The reply to the second request is the only one the agent sends.
    agent.add(Script().expect_request(1).hook([&, done = cancelled.get_future().share()] {
        asked = true;
        done.wait_for(10s);
    }).expect_request(1).send(reply(0, le32(7))));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    for (int i = 0; i < 2000 && agent.connections() == 0; ++i) std::this_thread::sleep_for(5ms);  // its end too
    NFCFileRef *ref = nullptr;
    const int descriptors = open_descriptors();
    EXPECT_TRUE(cancelled_inside([&] { NFCFileRefOpen(conn, "/a", "r", &ref); }, [&] { return asked.load(); }));
    cancelled.set_value();
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(on_another_thread([&] { return NFCFileRefOpen(conn, "/b", "r", &ref); }), 0u);
    NFCFileRefClose(conn, ref);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

TEST(Cancellation, RootShellWaitingForASilentShellKillsItAndFreesItsLock) {
    FakeAdb adb;
    adb.scenario(R"(prompt "")");  // a shell that never says anything
    const int descriptors = open_descriptors();
    EXPECT_TRUE(cancelled_inside([] { root_text("ls"); }, [&] { return !adb.runs().empty(); }));
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(zombie_child_left());
    adb.scenario(R"(prompt "# "
on ls out "x\r\n")");
    EXPECT_EQ(on_another_thread([] { return root_text("ls"); }), "x\r\n# ");
}
