// What a misbehaving tool leaves of a run, what a thousand runs of every route leave behind, and
// tool runs beside root shells from many threads.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "adb/runner/pauses.h"
#include "doubles/fake_adb_fixture.h"
#include "doubles/tool_runs.h"

using namespace std::chrono_literals;
using wrenlink::test::adb_text;
using wrenlink::test::FakeAdb;
using wrenlink::test::root_text;
using wrenlink::test::zombie_child_left;

namespace {

// The no-wait run's second and the root shell's half seconds, shortened for a test's life.
struct ShortPauses {
    ShortPauses() { wrenlink::pauses::shorten(1ms); }
    ~ShortPauses() { wrenlink::pauses::restore(); }
};

// The process that a `linger` left behind, and whether it has ended by itself (after a minute).
struct Background {
    long pid = 0;
    bool ended = false;
};
Background background(const FakeAdb &adb) {
    Background bg;
    for (const auto &r : adb.records()) {
        if (r.kind == "bg") bg.pid = std::stol(r.words.at(0));
        if (r.kind == "bgend") bg.ended = true;
    }
    return bg;
}

TEST(ToolFaults, TextSurvivesAToolThatEndsBySignal) {
    FakeAdb adb;
    adb.scenario(R"(args segv out "partial\n" err "E\n" die 11
args kill out "x" die 9)");
    EXPECT_EQ(adb_text(" segv"), "partial\nE\n");
    EXPECT_EQ(adb_text(" kill"), "x");
    EXPECT_FALSE(zombie_child_left());
}

// The shell ends at once, but a process it started keeps its output open: the root run goes on
// as with a shell that ended, instead of waiting for that process.
TEST(ToolFaults, RootShellIsNotHeldByAProcessTheShellLeftBehind) {
    FakeAdb adb;
    adb.scenario("args shell linger exit 0");
    EXPECT_EQ(root_text("ls"), "");
    const Background bg = background(adb);
    ASSERT_NE(bg.pid, 0);
    EXPECT_FALSE(bg.ended);  // the run is over while the process still holds the pipe
    ::kill(static_cast<pid_t>(bg.pid), SIGKILL);
    EXPECT_FALSE(zombie_child_left());
}

// Every route a hundred times (a leak per run would show as a hundred): the process keeps exactly the descriptors it had, and no child.
TEST(Routes, AHundredRunsOfEachLeaveNoDescriptorAndNoZombie) {
    FakeAdb adb;
    adb.scenario(R"S(args version out "ok"
args patient sleep 30000
prompt "# "
on id out "uid=0(root)")S");
    const ShortPauses shortPauses;
    const struct {
        const char *route;
        std::function<bool()> run;
    } routes[] = {
        {"tool run", [] { return adb_text(" version") == "ok"; }},
        {"no-wait run", [] { return adb_text(" patient", false).empty(); }},
        {"root shell", [] { return root_text("id\n").rfind("uid=0(root)", 0) == 0; }},
    };
    for (const auto &r : routes) {
        r.run();  // anything the first run of a route sets up for good is not a leak
        const int before = wrenlink::test::open_descriptors();
        int answered = 0;
        for (int i = 0; i < 100; ++i) answered += r.run() ? 1 : 0;
        EXPECT_EQ(answered, 100) << r.route;
        EXPECT_EQ(wrenlink::test::open_descriptors(), before) << r.route;
        EXPECT_FALSE(zombie_child_left()) << r.route;
    }
}

// Tool runs and root shells don't exclude each other; each thread gets back its own text.
TEST(Routes, ToolRunsAndRootShellsFromManyThreadsAtOnce) {
    constexpr int kThreads = 4, kRounds = 25;
    FakeAdb adb;
    std::string scenario = "prompt \"# \"\n";
    for (int t = 0; t < kThreads; ++t) {
        const std::string id = std::to_string(t);
        scenario += "args tool" + id + " out \"tool " + id + "\"\non root" + id + " out \"root " + id + "\"\n";
    }
    adb.scenario(scenario);
    const ShortPauses shortPauses;
    std::vector<int> wrong(2 * kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        const std::string id = std::to_string(t);
        threads.emplace_back([&wrong, t, id] {
            for (int i = 0; i < kRounds; ++i) wrong[t] += adb_text((" tool" + id).c_str()) == "tool " + id ? 0 : 1;
        });
        threads.emplace_back([&wrong, t, id] {
            for (int i = 0; i < kRounds; ++i)
                wrong[kThreads + t] += root_text(("root" + id + "\n").c_str()).rfind("root " + id, 0) == 0 ? 0 : 1;
        });
    }
    for (auto &thread : threads) thread.join();
    EXPECT_EQ(wrong, std::vector<int>(2 * kThreads, 0));
    EXPECT_EQ(adb.runs().size(), 2u * kThreads * kRounds);
    EXPECT_FALSE(zombie_child_left());
}

}  // namespace
