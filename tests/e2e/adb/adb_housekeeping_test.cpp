// Server housekeeping against the real adb tool, on a private server port and a home folder of
// its own. The binary's name holds "adb": killing every adb process must spare its caller. The
// kill runs only in a PID namespace of its own (see run_in_pid_namespace.sh).
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "doubles/temp_tree.h"
#include "e2e/adb/loopback_server.h"
#include "doubles/tool_runs.h"

extern char **environ;

#ifndef MSG_NOSIGNAL
#define MSG_NOSIGNAL 0
#endif

namespace {

using wrenlink::test::adb_text;
using wrenlink::test::connect_server;
using wrenlink::test::free_loopback_port;

bool real_tool_present() {
    struct stat info {};
    return ::stat(AndGetAdbFullpath(), &info) == 0;
}

bool in_own_pid_namespace() {
    std::ifstream cmdline("/proc/1/cmdline", std::ios::binary);
    std::ostringstream text;
    text << cmdline.rdbuf();
    return text.str().find("wrenlink-pid-namespace") != std::string::npos;
}

// Waits (bounded, as a guard against a hang, not as a measure) until `fd` has something to say.
bool readable_within(int fd, std::chrono::seconds limit) {
    pollfd ready{fd, POLLIN, 0};
    return ::poll(&ready, 1, static_cast<int>(limit.count() * 1000)) == 1;
}

// The server's answer to the smallest request of its protocol.
bool server_answers(uint16_t port) {
    const int fd = connect_server(port);
    if (fd < 0) return false;
    const std::string request = "000chost:version";
    char reply[4] = {};
    const bool answered = ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) == 16 &&
                          readable_within(fd, std::chrono::seconds(10)) && ::recv(fd, reply, 4, MSG_WAITALL) == 4;
    ::close(fd);
    return answered && std::string(reply, 4) == "OKAY";
}

pid_t start_sleeper(const char *name) {
    char *argv[] = {const_cast<char *>(name), const_cast<char *>("60"), nullptr};
    pid_t pid = -1;
    return ::posix_spawn(&pid, "/bin/sleep", nullptr, nullptr, argv, environ) == 0 ? pid : -1;
}

class RealAdb : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!real_tool_present()) return;
        home_ = std::make_unique<wrenlink::test::TempTree>();
        port_ = free_loopback_port();
        ::setenv("HOME", home_->root().c_str(), 1);
        ::setenv("ANDROID_ADB_SERVER_PORT", std::to_string(port_).c_str(), 1);
    }
    static void TearDownTestSuite() {
        if (!home_) return;
        adb_text(" kill-server");
        home_.reset();
    }
    void SetUp() override {
        if (!real_tool_present()) GTEST_SKIP() << "no adb tool at " << AndGetAdbFullpath();
    }

    static inline std::unique_ptr<wrenlink::test::TempTree> home_;
    static inline uint16_t port_ = 0;
};

TEST_F(RealAdb, RestartAdbRestartsTheServer) {
    ASSERT_EQ(AdbRestartAdb(), 0);
    ASSERT_TRUE(server_answers(port_));
    const int idle = connect_server(port_);
    ASSERT_GE(idle, 0);

    EXPECT_EQ(AdbRestartAdb(), 0);
    // The old server went away, closing the connection it held; a new one answers.
    char byte = 0;
    EXPECT_TRUE(readable_within(idle, std::chrono::seconds(30)));
    EXPECT_LE(::recv(idle, &byte, 1, MSG_DONTWAIT), 0);
    ::close(idle);
    EXPECT_TRUE(server_answers(port_));
}

TEST_F(RealAdb, ForwardToAnUnknownSerialReturnsZero) {
    EXPECT_EQ(AdbForward("wrenlink-no-such-phone", 45001, 45002), 0);
    // ...though the tool refused it.
    const std::string text = adb_text(" -s wrenlink-no-such-phone forward tcp:45001 tcp:45002");
    EXPECT_NE(text.find("not found"), std::string::npos) << text;
}

TEST_F(RealAdb, KillOtherAdbStopsTheServerButSparesItsCaller) {
    if (!in_own_pid_namespace()) GTEST_SKIP() << "stops processes by name: only in a PID namespace of its own";
    ASSERT_EQ(AdbRestartAdb(), 0);
    ASSERT_TRUE(server_answers(port_));
    const pid_t named = start_sleeper("adb-sleeper");
    const pid_t other = start_sleeper("sleeper");
    ASSERT_GT(named, 0);
    ASSERT_GT(other, 0);

    EXPECT_EQ(AdbKillOtherADB(), 0);

    int status = 0;
    ASSERT_EQ(::waitpid(named, &status, 0), named);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    EXPECT_EQ(::waitpid(other, &status, WNOHANG), 0);  // no "adb" in its line: still there
    ::kill(other, SIGKILL);
    ::waitpid(other, &status, 0);
    // The server has gone (its port closes as the process ends).
    for (int i = 0; i < 100 && server_answers(port_); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(server_answers(port_));
}

}  // namespace
