// Files on the phone, against the stand-in adb tool: the root shell's input bytes, the tool's
// arguments, and the verdict read from the text that came back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"

using namespace wrenlink::test;

namespace {


std::vector<Argv> root_runs(std::size_t n) { return std::vector<Argv>(n, tool_argv({"shell"})); }

// A phone whose shell is root from the start, so that no su line is sent.
std::string rooted(const std::string &rules) { return "prompt \"# \"\n" + rules; }

TEST(RootShellFileOperations, SendTheirLinesAndJudgeTheReply) {
    struct Case {
        const char *name;
        int32_t (*run)();
        const char *reply;  // to every line of the operation
        std::string input;
        int32_t result;
    };
    const Case cases[] = {
        {"rename", [] { return AdbRenameFile("S1", "/sdcard/a", "/sdcard/b c"); },
         "mv: /sdcard/a: Permission denied", "mv  \"/sdcard/a\"  \"/sdcard/b c\"", 1},
        {"remove", [] { return AdbRemoveFile("S1", "/sdcard/a b"); },
         "rm: /sdcard/a b: No such file or directory", "rm  \"/sdcard/a b\"", 1},
        {"remove directory", [] { return AdbRemoveDirectory("S1", "/sdcard/d"); }, "", "rmdir -r \"/sdcard/d\"", 0},
        {"make directory", [] { return AdbMakeDirectory("S1", "/sdcard/n"); },
         "chmod: /sdcard/n: Permission denied", "mkdir /sdcard/n\r\nchmod 777 /sdcard/n\r\n", 2},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario(rooted("on / out \"" + std::string(c.reply) + "\\r\\n\""));
        EXPECT_EQ(c.run(), c.result) << c.name;
        EXPECT_EQ(adb.shell_input(), c.input) << c.name;
        EXPECT_EQ(adb.runs().size(), c.name == std::string("make directory") ? 2u : 1u) << c.name;
    }
}

TEST(AdbMakeDirectory, OnlyTheChmodLineIsJudged) {
    FakeAdb adb;
    adb.scenario(rooted(R"(on mkdir out "mkdir: '/n': No such file or directory\r\n")"));
    EXPECT_EQ(AdbMakeDirectory("S1", "/n"), 0);
    adb.scenario(rooted(R"(on chmod out "chmod: /n: No such file or directory\r\n")"));
    EXPECT_EQ(AdbMakeDirectory("S1", "/n"), 1);
}

// The early exit of every family: a null or overlong argument runs nothing.
TEST(DeviceOperations, NullOrOverlongArgumentsRunNothing) {
    FakeAdb adb;
    const std::string text = too_long();
    const char *const longer = text.c_str();
    char out[2048];
    EXPECT_EQ(AdbRenameFile("S1", "/a", nullptr), -1);
    EXPECT_EQ(AdbRemoveFile(nullptr, "/a"), -1);
    EXPECT_EQ(AdbMakeDirectory("S1", longer), -1);
    EXPECT_EQ(AdbPullFile("S1", longer, "/host/x"), -1);  // no temporary copy is made either
    EXPECT_EQ(AdbPullFile(nullptr, "/a", "/host/x"), -1);
    EXPECT_EQ(AdbPushFile("S1", "/host/x", longer), -1);
    EXPECT_EQ(AdbPushFileEx(nullptr, "/a", "/b"), -1);
    EXPECT_EQ(AdbPullFileEx("S1", nullptr, "/b"), -1);
    EXPECT_EQ(AdbInstallPackage(nullptr, "/a.apk"), -1);
    EXPECT_EQ(AdbInstallPackage("S1", nullptr), -1);
    EXPECT_EQ(AdbInstallPackage("S1", longer), -1);
    EXPECT_EQ(AdbUninstallPackage(nullptr, "com.x"), -1);
    EXPECT_EQ(AdbGetTopActivity(longer, out), -1);
    EXPECT_EQ(AdbGetTopActivity(nullptr, out), -1);
    EXPECT_EQ(AdbStartActivity("S1", longer), -1);
    EXPECT_EQ(AdbGetPhoneSoftVersion(nullptr, nullptr), -1);
    EXPECT_EQ(AdbGetPhoneProductModel(nullptr, out), -1);
    EXPECT_EQ(AdbGetPhoneManufacture("P1", nullptr), -1);
    std::memset(out, 'z', 32);
    EXPECT_EQ(AdbGetPhoneProductModel(longer, out), 0);  // as with an empty text
    EXPECT_EQ(std::string(out, 32), std::string(32, '\0'));
    EXPECT_TRUE(adb.runs().empty());
}

TEST(AdbPushFile, QuotedPathsAndWhatItsTextSays) {
    struct Case {
        const char *output;
        int32_t result;
    };
    const Case cases[] = {
        {R"(out "/host/a b.txt: 1 file pushed.\n")", 0},
        {R"(err "adb: error: remote object not found\n")", 0},  // push does not search "not found"
        {R"(err "adb: error: failed to copy: remote Permission denied\n")", 2},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario(std::string("when push ") + c.output);
        testing::internal::CaptureStdout();
        EXPECT_EQ(AdbPushFile("S1", "/host/a b.txt", "/sdcard/x"), c.result) << c.output;
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "AdbPushFile: -s S1 push  \"/host/a b.txt\"  \"/sdcard/x\"\n");
        EXPECT_EQ(adb.runs(), (std::vector<Argv>{tool_argv({"-s", "S1", "push", "/host/a b.txt", "/sdcard/x"})}));
    }
}

TEST(AdbPullFile, GoesThroughATemporaryCopyAndJudgesItsRemoval) {
    FakeAdb adb;
    // The pull's own text says nothing that counts: the closing rm line decides.
    adb.scenario(rooted(R"(when pull err "adb: error: failed to copy: Permission denied\n"
on "rm " out "rm: /data/local/tmp/x: No such file or directory\r\n")"));
    EXPECT_EQ(AdbPullFile("S1", "/sdcard/DCIM/a.jpg", "/host/out dir/a.jpg"), 1);

    std::smatch m;
    const std::string input = adb.shell_input();
    ASSERT_TRUE(std::regex_match(input, m,
                                 std::regex("dd  if=/sdcard/DCIM/a\\.jpg of=(/data/local/tmp/([0-9]+))\r\n"
                                            "chmod 777 \\1\r\nrm \\1\r\n")))
        << input;
    EXPECT_LT(std::stol(m[2]), 1000000);
    const std::string copy = m[1];
    std::vector<Argv> expected = root_runs(2);
    expected.push_back(tool_argv({"-s", "S1", "pull", copy, "/host/out dir/a.jpg"}));
    expected.push_back(tool_argv({"shell"}));
    EXPECT_EQ(adb.runs(), expected);

    adb.scenario(rooted(R"(when pull err "adb: error: failed to copy: Permission denied\n")"));
    EXPECT_EQ(AdbPullFile("S1", "/sdcard/DCIM/a.jpg", "/host/a.jpg"), 0);
    adb.scenario(rooted(R"(on "rm " out "rm: /data/local/tmp/1: Permission denied\r\n")"));
    EXPECT_EQ(AdbPullFile("S1", "/sdcard/DCIM/a.jpg", "/host/a.jpg"), 2);
}

TEST(DirectTransfers, JudgeNothing) {
    FakeAdb adb;
    adb.scenario(R"(always err "adb: error: failed to copy: No such file or directory Permission denied\n")");
    EXPECT_EQ(AdbPushFileEx("S1", "/host/a b.txt", "/sdcard/c d"), 0);
    // The local path of a pull stands bare: its blank splits it.
    EXPECT_EQ(AdbPullFileEx("S1", "/sdcard/c d", "/host/e f"), 0);
    EXPECT_EQ(adb.runs(), (std::vector<Argv>{tool_argv({"-s", "S1", "push", "/host/a b.txt", "/sdcard/c d"}),
                                             tool_argv({"-s", "S1", "pull", "/sdcard/c d", "/host/e", "f"})}));

}

}  // namespace
