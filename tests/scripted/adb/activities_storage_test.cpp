// Activities and storage, against the stand-in adb tool.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"

using namespace wrenlink::test;

namespace {

TEST(AdbGetTopActivity, NameOfTheFocusedActivity) {
    FakeAdb adb;
    adb.scenario(R"(when "-s S1 " out "  mFocusedActivity: ActivityRecord{5d3f u0 com.example/.Main t12}\r\n"
when "-s S2 " out "  mFocusedActivity: null\r\n")");
    char name[2048];
    std::memset(name, 'z', sizeof name);
    EXPECT_EQ(AdbGetTopActivity("S1", name), 0);
    EXPECT_STREQ(name, "com.example/.Main");
    std::memset(name, 'z', sizeof name);
    EXPECT_EQ(AdbGetTopActivity("S2", name), -1);
    EXPECT_EQ(name[0], 'z');
    EXPECT_EQ(adb.runs().front(),
              shell_argv("S1", {"dumpsys", "activity", "activities", "|", "grep", "mFocusedActivity"}));
}

TEST(AdbStartActivity, OnlyStartingIntentCounts) {
    FakeAdb adb;
    adb.scenario(R"(when "com.example/.Main" out "Starting: Intent { cmp=com.example/.Main }\r\nError: Activity class does not exist.\r\n"
when "com.example/.Gone" out "Error type 3\r\n")");
    EXPECT_EQ(AdbStartActivity("S1", "com.example/.Main"), 0);
    EXPECT_EQ(AdbStartActivity("S1", "com.example/.Gone"), -1);
    EXPECT_EQ(adb.runs().front(), shell_argv("S1", {"am", "start", "-n", "com.example/.Main"}));
}

TEST(AdbForceStopApp, RunsAndReturnsZero) {
    FakeAdb adb;
    adb.scenario(R"(always err "error: device not found\n")");
    EXPECT_EQ(AdbForceStopApp("S1", "com.example"), 0);
    EXPECT_EQ(adb.runs(), (std::vector<Argv>{shell_argv("S1", {"am", "force-stop", "com.example"})}));
}

std::vector<Argv> listings(std::size_t n) {
    std::vector<Argv> runs;
    for (std::size_t i = 0; i < n; ++i) {
        runs.push_back(shell_argv("S1", {"ls -l /sdcard" + (i == 0 ? std::string() : std::to_string(i - 1))}));
    }
    return runs;
}

TEST(AdbGetFirstSDCardPath, SixCandidatesInOrder) {
    const char *const missing = R"(when "ls -l /sdcard" out "ls: /sdcard: No such file or directory\r\n")";
    struct Case {
        std::string scenario;
        const char *path;
        std::size_t runs;
    };
    const Case cases[] = {
        {"", "/sdcard", 1},  // an empty listing counts as found
        {std::string(R"(when "ls -l /sdcard4" out "total 0\r\n")") + "\n" + missing, "/sdcard4", 6},
        {R"(when "ls -l /sdcard1" out "ls: /sdcard1: Permission denied\r\n")" + std::string("\n") + missing,
         "/sdcard1", 3},
        // Judged on the whole output, not on its first few hundred bytes.
        {std::string(R"(args "-s S1 shell ls -l /sdcard" fill 1900 0 out "x: No such file or directory")") +
             "\nwhen \"ls -l /sdcard0\" out \"total 0\"",
         "/sdcard0", 2},
        {missing, "", 6},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario(c.scenario);
        char path[16];
        std::memset(path, 'z', sizeof path);
        EXPECT_EQ(AdbGetFirstSDCardPath("S1", path), 0) << c.scenario;
        EXPECT_STREQ(path, c.path) << c.scenario;
        EXPECT_EQ(adb.runs(), listings(c.runs)) << c.scenario;
    }
}

TEST(AdbGetStorageFreespace, FourthWordOfDf) {
    FakeAdb adb;
    adb.scenario(R"(when "df /data" out "/dev/block/dm-5  114816564  22147388  92538104  20% /data\r\n"
when "df /mnt" out "/mnt 1.5G 2G\r\n")");
    uint64_t bytes = 0;
    EXPECT_EQ(AdbGetStorageFreespace("S1", "/data", &bytes), 0);
    EXPECT_EQ(bytes, 92538104ull * 1024);
    bytes = 7;
    EXPECT_EQ(AdbGetStorageFreespace("S1", "/mnt", &bytes), -2);
    EXPECT_EQ(bytes, 7u);
    EXPECT_EQ(AdbGetStorageFreespace("S1", "/none", &bytes), -2);
    // The quoted text keeps the blank before its closing quote.
    EXPECT_EQ(adb.runs().front(), shell_argv("S1", {"df /data | grep / "}));
}

}  // namespace
