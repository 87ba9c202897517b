// The library's adb half through Debian's adb against simulated phones (tools/wrenlink-phone): the
// main roads an application takes when a phone is really there. The binary lives in a folder
// whose Resources/adb is /usr/bin/adb, so the library runs the real tool; a private server port
// and home in the environment keep every adb started from here off the default server.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "agent_install.h"
#include "doubles/temp_tree.h"
#include "doubles/tool_runs.h"
#include "e2e/adb/loopback_server.h"
#include "e2e/agent/agent_process.h"
#include "support/child_process.h"

namespace wrenlink::test {
namespace {

// A phone with su and a storage card, of a processor that has no phone build.
constexpr const char *kAlphaProfile = R"(ro.product.model=Alpha Phone
ro.product.manufacturer=Alphacorp
ro.build.version.release=9
ro.product.cpu.abi=mips
ro.product.cpu.abilist=mips,x86
phone.storage=/sdcard /dev/fuse 8000000 3000000
)";

std::string field(const char (&f)[32]) { return std::string(f, strnlen(f, sizeof f)); }

// A simulated phone (wrenlink-phone), connected to a private adb server that the library itself
// starts.
class LibraryAdbTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (::access("/usr/bin/adb", X_OK) != 0) GTEST_SKIP() << "/usr/bin/adb is not installed";
        ::setenv("ANDROID_ADB_SERVER_PORT", std::to_string(free_loopback_port()).c_str(), 1);
        ::setenv("HOME", dir_.root().c_str(), 1);  // the server keeps its key in $HOME/.android
        ::unsetenv("ANDROID_SERIAL");
        dir_.write("a.prop", kAlphaProfile);
        phone_ = support::ChildProcess(
            {WRENLINK_PHONE_PATH, "--phone", "port=0,profile=" + at("a.prop") + ",sandbox=" + at("a")},
            {.stderrPath = "", .endWithParent = true});
        const std::string line = phone_.read_line();
        ASSERT_TRUE(line.starts_with("ready ")) << "wrenlink-phone did not come up";
        serial_ = line.substr(6);
        adb_text((" connect " + serial_).c_str());
        // The server lists the phone a moment after the connect (bounded wait).
        for (int i = 0; i < 300 && !adb_text((" -s " + serial_ + " get-state").c_str()).starts_with("device"); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    void TearDown() override {
        if (phone_.started()) adb_text(" kill-server");
    }

    std::string at(const std::string &relative) const { return dir_.host(relative).string(); }

    TempTree dir_;
    support::ChildProcess phone_;
    std::string serial_;
};

TEST_F(LibraryAdbTest, PhonesAreListedWithTheirProperties) {
    PhoneInfo *phones = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(AdbGetPhoneList(&phones, &count), 0);
    ASSERT_EQ(count, 1u);
    const PhoneInfo &p = phones[0];
    EXPECT_EQ(field(p.serial) + " " + field(p.productModel) + " " + field(p.manufacturer) + " " +
                  field(p.softVersion) + " " + std::to_string(p.authorized) + std::to_string(p.present),
              serial_ + " Alpha Phone Alphacorp 9 11");
    WrenlinkFree(phones);
}

TEST_F(LibraryAdbTest, RootShellRunsTheLineAsRootWhereThereIsSu) {
    EXPECT_NE(root_text("id\r\n").find("uid=0(root)"), std::string::npos);
    root_text("mkdir /data/app/made\r\n");
    EXPECT_TRUE(std::filesystem::exists(dir_.host("a/data/app/made"))) << "made where only root may write";
}

TEST_F(LibraryAdbTest, PushAndPullMoveExactBytes) {
    std::string content(1024 * 1024 + 3, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + i / 251);
    dir_.write("up.bin", content);
    const char *serial = serial_.c_str();
    EXPECT_EQ(AdbPushFile(serial, at("up.bin").c_str(), "/sdcard/Download/up.bin"), 0);
    EXPECT_EQ(dir_.read("a/sdcard/Download/up.bin"), content);
    EXPECT_EQ(AdbPushFile(serial, at("up.bin").c_str(), "/system/up.bin"), 2) << "Permission denied";

    // The root route: a copy made by root in /data/local/tmp, pulled, then removed.
    EXPECT_EQ(AdbPullFile(serial, "/sdcard/Download/up.bin", at("down.bin").c_str()), 0);
    EXPECT_EQ(dir_.read("down.bin"), content);
    EXPECT_TRUE(std::filesystem::is_empty(dir_.host("a/data/local/tmp"))) << "the copy is removed";
    EXPECT_EQ(AdbPullFile(serial, "/sdcard/none.bin", at("none.bin").c_str()), 1);
}

TEST_F(LibraryAdbTest, AgentAnswersBehindTheForward) {
    TempTree storage;
    e2e::AgentProcess agent(storage.root());
    const unsigned local = free_loopback_port();
    EXPECT_EQ(AdbForward(serial_.c_str(), local, agent.port()), 0);
    NetConnection *conn = NetConnectionOpen("127.0.0.1", local);
    ASSERT_NE(conn, nullptr);
    EXPECT_EQ(TestPing(conn), 0);
    NetConnectionClose(conn);
}

// A program pushed to the phone runs from its path with the phone's storage as its "/" (through
// qemu-user, this machine's processor too); what the phone's shell says where it cannot.
TEST_F(LibraryAdbTest, PushedProgramsRunFromTheirPhonePath) {
    if (::access("/usr/bin/qemu-x86_64-static", X_OK) != 0) GTEST_SKIP() << "qemu-user-static is not installed";
    dir_.write("a/sdcard/note.txt", "a note\n");
    ASSERT_EQ(AdbPushFileEx(serial_.c_str(), WRENLINK_PHONE_PROGRAM, "/data/local/tmp/reader"), 0);
    const std::pair<const char *, const char *> rows[] = {
        {"chmod 644 /data/local/tmp/reader; /data/local/tmp/reader; echo $?",
         "/system/bin/sh: /data/local/tmp/reader: can't execute: Permission denied\n126\n"},
        {"chmod 755 /data/local/tmp/reader && /data/local/tmp/reader /sdcard/note.txt; echo $?", "a note\n0\n"},
        {"/data/local/tmp/reader +/sdcard/made.txt /sdcard/made.txt /sdcard/none; echo $?",
         "made\n/data/local/tmp/reader: /sdcard/none: No such file or directory\n1\n"},
        {"chmod 755 /sdcard/note.txt; /sdcard/note.txt; echo $?", "/system/bin/sh: /sdcard/note.txt: can't execute: Exec format error\n126\n"},
        {"/data/local/tmp/none; echo $?", "/system/bin/sh: /data/local/tmp/none: not found\n127\n"},
    };
    for (const auto &[line, expected] : rows) {
        char output[2048] = {};
        AdbShellCommand(serial_.c_str(), line, output, true);
        EXPECT_EQ(std::string(output), expected) << line;
    }
    EXPECT_EQ(dir_.read("a/sdcard/made.txt"), "made\n") << "made in the phone's storage";
}

// A forward to an abstract socket reaches a name of the longest length an address holds, and one
// byte more is refused while the phone serves on.
TEST_F(LibraryAdbTest, AbstractSocketNamesUpToTheirLongest) {
    const std::string longest(107, 'n');
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, longest.data(), longest.size());
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    for (const std::string &name : {longest, longest + "n"}) {
        const unsigned local = free_loopback_port();
        AdbCommand((" -s " + serial_ + " forward tcp:" + std::to_string(local) + " localabstract:" + name).c_str(), nullptr,
                   0, true);
        NetConnection *conn = NetConnectionOpen("127.0.0.1", local);
        ASSERT_NE(conn, nullptr) << "adb's server takes the connection before it asks the phone";
        pollfd ready{listener, POLLIN, 0};
        EXPECT_EQ(::poll(&ready, 1, name == longest ? 5000 : 500), name == longest ? 1 : 0) << name.size();
        NetConnectionClose(conn);
        if (ready.revents != 0) ::close(::accept(listener, nullptr, nullptr));
    }
    ::close(listener);
    char model[32] = {};
    EXPECT_EQ(AdbGetPhoneProductModel(serial_.c_str(), model), 0);
    EXPECT_STREQ(model, "Alpha Phone");
}

// The agent's installation names the step that fails and takes down what it set up before.
TEST_F(LibraryAdbTest, AgentInstallNamesWhatStopsIt) {
    using wrenlink_example::AgentInstall;
    dir_.write("agents/armeabi-v7a/wrenlink-agent", "built");
    AgentInstall unlisted({.serial = "127.0.0.1:1", .agents_dir = at("agents")});
    EXPECT_FALSE(unlisted.install());
    EXPECT_EQ(unlisted.error(), "adb lists no phone 127.0.0.1:1");
    AgentInstall no_build({.serial = "", .agents_dir = at("agents")});
    EXPECT_FALSE(no_build.install());
    EXPECT_EQ(no_build.error(), "no agent build for this phone's processor (ro.product.cpu.abi=mips, "
                                "ro.product.cpu.abilist=mips,x86); builds in " + at("agents") + ": armeabi-v7a");
}

// The phone's list of processors leads to the x86 build, which runs under qemu-i386. An agent left
// running by an earlier run is replaced.
TEST_F(LibraryAdbTest, AgentInstallStopsTheAgentWhenItsPortIsForwardedElsewhere) {
    const std::string agents = WRENLINK_PHONE_AGENTS_DIR;
    if (::access("/usr/bin/qemu-i386-static", X_OK) != 0) GTEST_SKIP() << "qemu-user-static is not installed";
    if (::access((agents + "/x86/wrenlink-agent").c_str(), R_OK) != 0) GTEST_SKIP() << "no x86 phone build in " << agents;
    const std::string earlier = std::string(wrenlink_example::kAgentPhonePath) + " --detach --control localabstract:" +
                                wrenlink_example::kAgentControlName + " --events localabstract:" +
                                wrenlink_example::kAgentEventsName + " /sdcard";
    ASSERT_EQ(AdbPushFileEx(serial_.c_str(), (agents + "/x86/wrenlink-agent").c_str(), wrenlink_example::kAgentPhonePath), 0);
    char started[2048] = {};
    AdbShellCommand(serial_.c_str(), earlier.c_str(), started, true);
    ASSERT_TRUE(std::string(started).starts_with("listening on")) << started;
    const std::string elsewhere = " -s " + serial_ + " forward tcp:" + std::to_string(wrenlink_example::kEventPort) + " tcp:1";
    adb_text(elsewhere.c_str());
    std::vector<std::string> lines;
    wrenlink_example::AgentInstall install({.serial = "", .agents_dir = agents, .control_port = free_loopback_port()},
                                           [&](const std::string &line) { lines.push_back(line); });
    EXPECT_FALSE(install.install());
    EXPECT_EQ(install.error(), "127.0.0.1:10244 is already forwarded to tcp:1 of " + serial_ +
                                   " (adb forward --remove tcp:10244 ends that)");
    ASSERT_GE(lines.size(), 4u);
    EXPECT_TRUE(lines[2].starts_with("an agent from an earlier run was running: stopping it (stopped the agent")) << lines[2];
    EXPECT_TRUE(lines[3].starts_with("started: listening on localabstract:wrenlink-agent")) << lines[3];
    EXPECT_TRUE(lines.back().starts_with("stopped the agent on the phone")) << lines.back();
    const std::string left = adb_text(" forward --list");
    EXPECT_NE(left.find(serial_ + " tcp:10244 tcp:1\n"), std::string::npos) << "the other forward stays";
    EXPECT_EQ(left.find("localabstract:"), std::string::npos) << left;
    adb_text(" forward --remove-all");
}

}  // namespace
}  // namespace wrenlink::test
