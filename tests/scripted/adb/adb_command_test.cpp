// The process runner against the stand-in tool: what the tool is given, what comes back, and
// what a run leaves behind.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"
#include "doubles/tool_runs.h"

using wrenlink::test::adb_text;
using wrenlink::test::Argv;
using wrenlink::test::FakeAdb;
using wrenlink::test::tool_argv;
using wrenlink::test::zombie_child_left;

namespace {

TEST(AdbCommand, JoinsStdoutBeforeStderrEachUpToItsFirstNul) {
    FakeAdb adb;
    // stderr is written first, and a NUL ends each stream's text.
    adb.scenario(R"(always err "E1\n" sleep 20 out "O1\0hidden" err "E2\0gone" out "more")");
    EXPECT_EQ(adb_text(" x"), "O1E1\nE2");
}

TEST(AdbCommand, CopiesByTheBufferRule) {
    FakeAdb adb;
    adb.scenario("args L7 out \"1234567\"\nargs L8 out \"12345678\"\n");
    constexpr int32_t kSize = 8;
    auto copy = [](const char *line) {
        std::string buffer(kSize + 4, '#');
        EXPECT_EQ(AdbCommand(line, buffer.data(), kSize, true), 0);
        return buffer;
    };
    EXPECT_EQ(copy(" L7"), std::string("1234567\0####", 12));  // S - 1: whole, with its terminator
    EXPECT_EQ(copy(" L8"), "1234567#####");                   // S: S - 1 bytes, nothing else written
}

TEST(AdbCommand, EndsWhenTheToolExitsThoughItsBackgroundChildHoldsThePipes) {
    FakeAdb adb;
    adb.scenario(R"(always out "before\n" linger err "after\n")");
    EXPECT_EQ(adb_text(" start-server"), "before\nafter\n");

    const auto records = adb.records();
    const auto bg = std::find_if(records.begin(), records.end(), [](const auto &r) { return r.kind == "bg"; });
    ASSERT_NE(bg, records.end());
    // The run is over while the background child still holds the pipes.
    EXPECT_TRUE(std::none_of(records.begin(), records.end(), [](const auto &r) { return r.kind == "bgend"; }));
    ::kill(static_cast<pid_t>(std::stol(bg->words.at(0))), SIGKILL);
}

TEST(AdbCommand, NoWaitRunTerminatesTheToolAndGivesNoText) {
    FakeAdb adb;
    adb.scenario("args patient out \"early\\n\" sleep 30000\n"
                 "args stubborn ignore-term out \"early\\n\" sleep 30000\n");
    const int descriptors = wrenlink::test::open_descriptors();
    char output[wrenlink::adb::kOutputSize];
    std::memset(output, 'x', sizeof output);
    EXPECT_EQ(AdbCommand(" patient", output, wrenlink::adb::kOutputSize, false), 0);
    EXPECT_EQ(output[0], '\0');
    // One that ignores the terminate signal is killed all the same.
    EXPECT_EQ(adb_text(" stubborn", false), "");

    std::vector<std::string> kinds;
    for (const auto &r : adb.records()) kinds.push_back(r.kind);
    EXPECT_EQ(kinds, (std::vector<std::string>{"argv", "term", "argv"}));
    EXPECT_FALSE(zombie_child_left());
    EXPECT_EQ(wrenlink::test::open_descriptors(), descriptors);
}

TEST(AdbCommand, RunsFromManyThreadsOneAtATime) {
    FakeAdb adb;
    adb.scenario("always sleep 5");
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 3; ++i) adb_text((" t" + std::to_string(t)).c_str());
        });
    }
    for (auto &thread : threads) thread.join();

    const auto records = adb.records();
    ASSERT_EQ(records.size(), 48u);
    for (std::size_t i = 0; i < records.size(); i += 2) {
        // Every start is followed by the end of the same run, never by another start.
        EXPECT_EQ(records[i].kind, "argv");
        EXPECT_EQ(records[i + 1].kind, "exit");
        EXPECT_EQ(records[i].pid, records[i + 1].pid);
    }
}

TEST(AdbCommand, ToolGetsOnlyTheStandardDescriptors) {
    FakeAdb adb;
    adb.scenario("always fds");
    // A descriptor of the host without close-on-exec.
    const int stray = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(stray, 0);
    adb_text(" x");
    ::close(stray);
    const auto records = adb.records();
    const auto fds = std::find_if(records.begin(), records.end(), [](const auto &r) { return r.kind == "fds"; });
    ASSERT_NE(fds, records.end());
    EXPECT_EQ(fds->words, (std::vector<std::string>{"0", "1", "2"}));
}

TEST(AdbShellCommand, FormsTheShellLineAndCopiesNonEmptyText) {
    FakeAdb adb;
    adb.scenario(R"(when "shell ls" out "a\nb\n")");
    char output[wrenlink::adb::kOutputSize] = {};
    EXPECT_EQ(AdbShellCommand("SER", "ls -l /sdcard", output, true), 1);
    EXPECT_STREQ(output, "a\nb\n");
    EXPECT_EQ(adb.runs().back(), tool_argv({"-s", "SER", "shell", "ls", "-l", "/sdcard"}));

    // Empty text leaves the caller's buffer as it was.
    std::memset(output, 'x', sizeof output);
    EXPECT_EQ(AdbShellCommand("SER", "true", output, true), 1);
    EXPECT_EQ(output[0], 'x');
}

TEST(Housekeeping, RestartAndForwardRunTheirLines) {
    FakeAdb adb;
    EXPECT_EQ(AdbRestartAdb(), 0);
    EXPECT_EQ(AdbForward("SER", 5000, 4294967295u), 0);
    EXPECT_EQ(adb.runs(), (std::vector<Argv>{tool_argv({"kill-server"}), tool_argv({"start-server"}),
                                             tool_argv({"-s", "SER", "forward", "tcp:5000", "tcp:4294967295"})}));
}

}  // namespace
