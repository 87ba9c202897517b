// The device operations against the stand-in tool: the exact line each one hands the tool or its
// root shell, the answer it draws from what comes back, and what it leaves alone when it fails.
// What a working phone answers is shown end to end, through Debian's adb (e2e/adb).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <regex>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"

using namespace wrenlink::test;

namespace {

// A phone whose shell is root from the start (a '#' in its prompt), so that no su line is sent.
std::string rooted(const std::string &rules) { return "prompt \"root@phone:/ # \"\n" + rules; }

struct Case {
    const char *name;
    std::string scenario;
    std::function<int32_t()> run;  // may check what the call handed back
    int32_t result;
    std::vector<Argv> runs;  // what the tool was given, run by run
    std::string input = {};  // what the root shell read
};

const Argv kRootShell = tool_argv({"shell"});

// A 2048-byte answer buffer filled with 'z' beforehand, to see what a call leaves alone.
struct Answer {
    char text[2048];
    Answer() { std::memset(text, 'z', sizeof text); }
    bool untouched() const { return text[0] == 'z'; }
};

TEST(Operations, LinesAndVerdicts) {
    const Case cases[] = {
        {"rename", rooted(R"(on / out "mv: /sdcard/a: Permission denied\r\n")"),
         [] { return AdbRenameFile("S1", "/sdcard/a", "/sdcard/b c"); }, 1, {kRootShell},
         "mv  \"/sdcard/a\"  \"/sdcard/b c\""},
        {"remove", rooted(R"(on / out "rm: /sdcard/a b: No such file or directory\r\n")"),
         [] { return AdbRemoveFile("S1", "/sdcard/a b"); }, 1, {kRootShell}, "rm  \"/sdcard/a b\""},
        // Two shells, and only the chmod line's reply is judged.
        {"make directory", rooted(R"(on / out "chmod: /n: Permission denied\r\n")"),
         [] { return AdbMakeDirectory("S1", "/n"); }, 2, {kRootShell, kRootShell}, "mkdir /n\r\nchmod 777 /n\r\n"},
        {"make directory, mkdir failing", rooted(R"(on mkdir out "mkdir: '/n': No such file or directory\r\n")"),
         [] { return AdbMakeDirectory("S1", "/n"); }, 0, {kRootShell, kRootShell}, "mkdir /n\r\nchmod 777 /n\r\n"},
        // Push does not search for "not found".
        {"push", R"(when push err "adb: error: remote object not found\n")",
         [] { return AdbPushFile("S1", "/host/a b.txt", "/sdcard/x"); }, 0,
         {tool_argv({"-s", "S1", "push", "/host/a b.txt", "/sdcard/x"})}},
        // The direct transfers judge nothing; the local path of a pull stands bare, so its blank splits it.
        {"direct pull", R"(always err "failed to copy: No such file or directory Permission denied\n")",
         [] { return AdbPullFileEx("S1", "/sdcard/c d", "/host/e f"); }, 0,
         {tool_argv({"-s", "S1", "pull", "/sdcard/c d", "/host/e", "f"})}},
        // Install and uninstall share one judgement: what ran and printed nothing is 1.
        {"install", R"(always err "adb: failed to open /host/my app.apk: Permission denied\n")",
         [] { return AdbInstallPackage("S1", "/host/my app.apk"); }, 2,
         {tool_argv({"-s", "S1", "install", "-r", "/host/my app.apk"})}},
        {"uninstall", "", [] { return AdbUninstallPackage("S1", "com.example.app"); }, 1,
         {tool_argv({"-s", "S1", "uninstall", "com.example.app"})}},
        {"apk exists", R"(when "pm path com.example.app" out "package:/data/app/com.example.app-1/base.apk\n")",
         [] {
             uint8_t exists = 0;
             const int32_t r = AdbCheckPackageApkExist("S1", "com.example.app", &exists);
             EXPECT_EQ(exists, 1);
             return r;
         },
         0, {shell_argv("S1", {"pm path com.example.app | grep package"})}},
        {"app installed", R"(always out "package:com.one\r\n")",
         [] {
             uint8_t installed = 0;
             const int32_t r = AdbCheckAppInstalled("S1", "com.one", &installed);
             EXPECT_EQ(installed, 1);
             return r;
         },
         0, {shell_argv("S1", {"pm", "list", "packages", "|", "grep", "com.one"})}},
        {"package value", R"(always out "Packages:\r\n    versionCode=31\r\n    versionName=1.2.3\r\n")",
         [] {
             Answer value;
             const int32_t r = AdbGetPackageProp("S1", "com.example.app", "versionName=", value.text);
             EXPECT_STREQ(value.text, "1.2.3");
             return r;
         },
         0, {shell_argv("S1", {"dumpsys", "package", "com.example.app"})}},
        {"package value missing", R"(always out "Packages:\r\n    versionCode=31\r\n")",
         [] {
             Answer value;
             const int32_t r = AdbGetPackageProp("S1", "com.example.app", "versionName=", value.text);
             EXPECT_TRUE(value.untouched());
             return r;
         },
         -2, {shell_argv("S1", {"dumpsys", "package", "com.example.app"})}},
        {"top activity", R"(always out "  mFocusedActivity: ActivityRecord{5d3f u0 com.example/.Main t12}\r\n")",
         [] {
             Answer name;
             const int32_t r = AdbGetTopActivity("S1", name.text);
             EXPECT_STREQ(name.text, "com.example/.Main");
             return r;
         },
         0, {shell_argv("S1", {"dumpsys", "activity", "activities", "|", "grep", "mFocusedActivity"})}},
        // Only the "Starting: Intent" words count, whatever follows them.
        {"start activity", R"(always out "Starting: Intent { cmp=a/.M }\r\nError: Activity class does not exist.\r\n")",
         [] { return AdbStartActivity("S1", "a/.M"); }, 0, {shell_argv("S1", {"am", "start", "-n", "a/.M"})}},
        {"start activity refused", R"(always out "Error type 3\r\n")", [] { return AdbStartActivity("S1", "a/.M"); },
         -1, {shell_argv("S1", {"am", "start", "-n", "a/.M"})}},
        {"force stop", R"(always err "error: device not found\n")", [] { return AdbForceStopApp("S1", "com.example"); },
         0, {shell_argv("S1", {"am", "force-stop", "com.example"})}},
        // The quoted text keeps the blank before its closing quote.
        {"free space", R"(always out "/dev/block/dm-5  114816564  22147388  92538104  20% /data\r\n")",
         [] {
             uint64_t bytes = 0;
             const int32_t r = AdbGetStorageFreespace("S1", "/data", &bytes);
             EXPECT_EQ(bytes, 92538104ull * 1024);
             return r;
         },
         0, {shell_argv("S1", {"df /data | grep / "})}},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario(c.scenario);
        EXPECT_EQ(c.run(), c.result) << c.name;
        EXPECT_EQ(adb.runs(), c.runs) << c.name;
        EXPECT_EQ(adb.shell_input(), c.input) << c.name;
    }
}

TEST(Operations, PushPrintsItsLine) {
    FakeAdb adb;
    testing::internal::CaptureStdout();
    AdbPushFile("S1", "/host/a b.txt", "/sdcard/x");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "AdbPushFile: -s S1 push  \"/host/a b.txt\"  \"/sdcard/x\"\n");
}

// The lists are the raw text, cut where the runner's 2048-byte buffer ends.
TEST(Operations, PackageListsAreTheRawTextCutAtTheRunnersLimit) {
    FakeAdb adb;
    adb.scenario(R"(when "packages -3" fill 3000 0
when "packages -s" out "package:android\r\n")");
    char *text = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(AdbListPackege3("S1", &text, &length), 0);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(length, 2047u);
    EXPECT_EQ(std::strlen(text), 2047u);
    WrenlinkFree(text);
    EXPECT_EQ(AdbListPackegeSys("S1", &text, &length), 0);
    EXPECT_STREQ(text, "package:android\r\n");
    EXPECT_EQ(length, std::strlen(text));
    WrenlinkFree(text);
    EXPECT_EQ(adb.runs(), (std::vector<Argv>{shell_argv("S1", {"pm", "list", "packages", "-3"}),
                                             shell_argv("S1", {"pm", "list", "packages", "-s"})}));

    adb.scenario("");  // nothing printed: a block with the empty text
    EXPECT_EQ(AdbListPackege3("S1", &text, &length), 0);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_STREQ(text, "");
    WrenlinkFree(text);
}

TEST(Operations, StorageCardIsTheFirstOfSixCandidates) {
    const char *const missing = R"(when "ls -l /sdcard" out "ls: /sdcard: No such file or directory\r\n")";
    const struct {
        std::string scenario;
        const char *path;
        std::size_t runs;
    } cases[] = {
        {"", "/sdcard", 1},  // an empty listing counts as found
        {std::string(R"(when "ls -l /sdcard4" out "total 0\r\n")") + "\n" + missing, "/sdcard4", 6},
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
        std::vector<Argv> listings;
        for (std::size_t i = 0; i < c.runs; ++i) {
            listings.push_back(shell_argv("S1", {"ls -l /sdcard" + (i == 0 ? std::string() : std::to_string(i - 1))}));
        }
        EXPECT_EQ(adb.runs(), listings) << c.scenario;
    }
}

// The root route of a pull: a copy made by root in /data/local/tmp, pulled, then removed; the
// closing rm line decides, whatever the pull itself said.
TEST(Operations, PullGoesThroughATemporaryCopyAndJudgesItsRemoval) {
    FakeAdb adb;
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
    EXPECT_EQ(adb.runs(), (std::vector<Argv>{kRootShell, kRootShell,
                                             tool_argv({"-s", "S1", "pull", m[1], "/host/out dir/a.jpg"}), kRootShell}));

    adb.scenario(rooted(R"(when pull err "adb: error: failed to copy: Permission denied\n")"));
    EXPECT_EQ(AdbPullFile("S1", "/sdcard/DCIM/a.jpg", "/host/a.jpg"), 0);
    adb.scenario(rooted(R"(on "rm " out "rm: /data/local/tmp/1: Permission denied\r\n")"));
    EXPECT_EQ(AdbPullFile("S1", "/sdcard/DCIM/a.jpg", "/host/a.jpg"), 2);
}

// The early exit of every family: a null or overlong argument runs nothing.
TEST(Operations, NullOrOverlongArgumentsRunNothing) {
    FakeAdb adb;
    const std::string text(600, 'p');  // longer than any command line may be
    const char *const longer = text.c_str();
    char out[2048];
    EXPECT_EQ(AdbRenameFile("S1", "/a", nullptr), -1);
    EXPECT_EQ(AdbMakeDirectory("S1", longer), -1);
    EXPECT_EQ(AdbPullFile("S1", longer, "/host/x"), -1);  // no temporary copy is made either
    EXPECT_EQ(AdbPushFile("S1", "/host/x", longer), -1);
    EXPECT_EQ(AdbInstallPackage("S1", longer), -1);
    EXPECT_EQ(AdbShellCommand(nullptr, "ls", out, true), -1);
    EXPECT_EQ(AdbShellCommand("S1", "ls", nullptr, true), -1);
    EXPECT_EQ(AdbShellCommand("S1", longer, out, true), -1);
    EXPECT_EQ(AdbGetTopActivity(nullptr, out), -1);
    EXPECT_EQ(AdbGetPhoneManufacture("P1", nullptr), -1);
    std::memset(out, 'z', 32);
    EXPECT_EQ(AdbGetPhoneProductModel(longer, out), 0);  // as with an empty text
    EXPECT_EQ(std::string(out, 32), std::string(32, '\0'));
    EXPECT_TRUE(adb.runs().empty());
}

}  // namespace
